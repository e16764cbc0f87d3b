#pragma once

#include "tests/e2e/updaterrun.h"

#include <QByteArray>
#include <QJsonObject>
#include <QMap>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

/**
 * One installation that is kept over many runs of the built updater, and judged after each: what
 * the process had at its end, what it left on the machine, what it did for the user. A finding is a
 * line on the standard error. One a process; GUI thread.
 */
class Lane
{
public:
    explicit Lane(int number);

    /// The two kinds of runs come in turns, each spread evenly.
    void Run(int updates, int checks);

    /// What was counted, by the names in figures.h.
    QJsonObject Figures() const;

private:
    Q_DISABLE_COPY(Lane)

    struct Update;
    struct Check;

    void MakeFolders();
    void LearnBaseline();

    void RunUpdate(const Update &update);
    void RunCheck(const Check &check);

    /// Starts the updater and judges all that does not depend on what the service said. False when
    /// it failed as a whole, so that there is nothing more to judge.
    bool RunUpdater(const QStringList &arguments);
    void NearlyFillLog();
    QProcessEnvironment WatchedEnvironment() const;

    /// False when the run was not even made.
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
    QStringList m_baseline;    ///< the end report of a program that does nothing
    QStringList m_ownChildren; ///< processes that stay
    QString m_kind;            ///< of the run that is judged
    int m_runs = 0;
    int m_release = 0;    ///< installed
    int m_zipRelease = 0; ///< the last one that came as a zip package; 0 for none
    int m_clientStarts = 0;
    bool m_hasMarker = false;
    QStringList m_downloaded; ///< what has to be in the download folder
    QMap<QString, qint64> m_figures;
};
