#pragma once

#include "tests/e2e/updaterrun.h"

#include <QString>

#include <functional>

/**
 * The package server that scripts/bench runs: nginx with the production files, a certificate of its
 * own, and zip packages that are called after their size in MiB. GUI thread.
 */
class PackageServer
{
public:
    /// From the command line: the port, the working folder of scripts/serve, and the folder that
    /// the packages lie in.
    PackageServer(int argc, char *argv[]);

    /// The address of the package of @p mebibytes.
    QString Url(int mebibytes) const;

    QString Certificate() const;

    /**
     * The number of requests for packages answered so far, in full or not. nginx writes each down
     * when it is done with it.
     */
    int RequestCount() const;

    /// When request number @p index began to arrive, in milliseconds since the epoch. Waits for it.
    double RequestStartMs(int index) const;

    /**
     * Starts the updater of @p run so that it goes straight on to download the package of
     * @p mebibytes from here, trusting the certificate. The service offers it with a kind that
     * neither starts nor installs it, so that the run stays as it is when all has come. Calls
     * @p beforeTheOffer while the check waits for its answer, after which the download begins.
     */
    void StartDownload(
        UpdaterRun &run, int mebibytes, const std::function<void()> &beforeTheOffer = [] {}) const;

    /// Starts the updater in the same way, but offers the package to be installed.
    void StartUpdate(UpdaterRun &run, int mebibytes) const;

    /// Where that package comes to lie; its folder is made.
    static QString Target(const UpdaterRun &run, int mebibytes);

private:
    void Start(UpdaterRun &run, int mebibytes, const QJsonObject &changes,
               const std::function<void()> &beforeTheOffer) const;
    QString PackagesUrl() const;
    QList<QByteArray> Log() const;

    QString m_port;
    QString m_folder;
    QString m_packages;
};
