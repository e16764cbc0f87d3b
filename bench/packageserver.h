// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/updaterrun.h"

#include <QString>

#include <functional>

/**
 * The package server that scripts/bench runs: nginx with the production files, a certificate of its
 * own, and zip packages that are named after their size in MiB. GUI thread.
 */
class PackageServer
{
public:
    /// From the command line: the port, the working folder of scripts/serve, and the folder that
    /// the packages are in.
    PackageServer(int argc, char *argv[]);

    /// The address of the package of @p mebibytes.
    QString Url(int mebibytes) const;

    QString Certificate() const;

    /**
     * The number of requests for packages that were answered so far, in full or not. nginx logs a
     * request when it has ended.
     */
    int RequestCount() const;

    /// When request number @p index began to arrive, in milliseconds since the epoch. Waits for it.
    double RequestStartMs(int index) const;

    /**
     * Starts the updater of @p run so that it downloads the package of @p mebibytes from here
     * without a prompt, trusting the certificate. The service offers the package with a kind that
     * the updater neither starts nor installs, so that nothing happens after the download. Calls
     * @p beforeTheOffer while the check waits for its answer, before the download begins.
     */
    void StartDownload(
        UpdaterRun &run, int mebibytes, const std::function<void()> &beforeTheOffer = [] {}) const;

    /// Starts the updater in the same way, but offers the package to be installed.
    void StartUpdate(UpdaterRun &run, int mebibytes) const;

    /// The path that the package is downloaded to; creates its folder.
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
