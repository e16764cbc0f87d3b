// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/updaterrun.h"

#include <QByteArray>
#include <QJsonObject>
#include <QMap>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

/**
 * One installation that lives through many runs of the built updater. After each run the lane
 * checks what the process still held at its end, what it left on the machine and what it did for
 * the user. Each finding is printed to stderr. One per process; GUI thread.
 */
class Lane
{
public:
    explicit Lane(int number);

    /// Makes the runs in turns, both kinds spread evenly.
    void Run(int updates, int checks);

    /// The counts, by the names in figures.h.
    QJsonObject Figures() const;

private:
    Q_DISABLE_COPY(Lane)

    struct Update;
    struct Check;

    void MakeFolders();
    void LearnBaseline();

    void RunUpdate(const Update &update);
    void RunCheck(const Check &check);

    /// Starts the updater and checks what does not depend on the service's answer. False when the
    /// run failed, so that there is nothing more to check.
    bool RunUpdater(const QStringList &arguments);
    void NearlyFillLog();
    QProcessEnvironment WatchedEnvironment() const;

    /// False when the updater failed, apart from leaks.
    bool JudgeExitCode(int exitCode);
    void JudgeEndReport();
    void JudgeProcesses();
    void JudgeLog(qint64 sizeBefore);
    void JudgeRequests(const QString &askedBy, const QString &package);
    void JudgeClientStart(const QStringList &arguments);
    void JudgeInstallerStart(const QStringList &arguments);
    void JudgeInstalled();
    void JudgeFiles();

    QString Version(int release) const;
    QString PackageName(int release) const;
    QMap<QString, QByteArray> FilesOf(int release) const;
    QByteArray PackageOf(int release) const;
    QString LogPath() const;

    void Count(const char *figure, qint64 number = 1);
    void CountMost(const char *figure, qint64 number);

    /// A finding unless @p holds.
    bool Expect(bool holds, const QString &otherwise);

    UpdaterRun m_run;
    StandIn m_installer;
    int m_number;
    QString m_reportPath;
    QStringList m_baseline;    ///< the end report of an empty program
    QStringList m_ownChildren; ///< processes of the harness
    QString m_kind;            ///< of the current run
    int m_runs = 0;
    int m_release = 0;    ///< installed
    int m_zipRelease = 0; ///< the last zip package; 0 for none
    int m_clientStarts = 0;
    bool m_hasMarker = false;
    QStringList m_downloaded; ///< expected in the download folder
    QMap<QString, qint64> m_figures;
};
