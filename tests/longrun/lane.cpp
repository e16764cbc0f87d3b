// SPDX-License-Identifier: MIT
#include "tests/longrun/lane.h"

#include "tests/longrun/figures.h"
#include "tests/longrun/remains.h"
#include "tests/support/resourcelimits.h"
#include "tests/support/zipmaker.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcess>
#include <QTest>
#include <QVector>

#include <algorithm>
#include <cstdio>

namespace
{

constexpr qint64 kLogLimit = 30LL * 1024 * 1024;

/// Longer than any line of these runs.
constexpr qint64 kLongestLogLine = 2048;

/// The most room that a nearly full log has left; one or two runs fill it.
constexpr qint64 kLogRoom = 1000;

/// Every third run starts with a log that is nearly full.
constexpr int kFullLogEvery = 3;

/// The exit code of the leak sanitizer.
constexpr int kLeaked = 23;

constexpr int kProcessesEndMs = 15000;

QString CheckPath()
{
    return QStringLiteral("/check");
}

QString InstallerName()
{
    return QStringLiteral("Setup.exe");
}

/// The file in which a stand-in records its starts.
QString CallsOf(const QString &program)
{
    return program + QStringLiteral(".calls");
}

/// A line for each start.
QList<QByteArray> NotedStarts(const QString &program)
{
    if (!QFile::exists(CallsOf(program)))
        return {};
    QList<QByteArray> lines = ReadFile(CallsOf(program)).split('\n');
    lines.removeLast();
    return lines;
}

/// The line for a start with these arguments.
QByteArray Noted(const QStringList &arguments)
{
    QByteArray line;
    for (const QString &argument : arguments)
        line += argument.toUtf8().toHex() + ' ';
    return line;
}

QString VersionIn(const QByteArray &json, const char *key)
{
    return QJsonDocument::fromJson(json).object().value(QLatin1String(key)).toString();
}

} // namespace

struct Lane::Update {
    const char *name;
    const char *language;
    const char *mode; ///< the service's "update"
    bool installer;
    QStringList arguments;
    QStringList passedOn;
};

struct Lane::Check {
    const char *name;
    int status;
    const char *answer; ///< VERSION stands for the installed one
    bool removesMarker;
    QStringList arguments;
    QStringList passedOn;
};

Lane::Lane(int number)
    : m_installer(m_run.Scratch() + QLatin1Char('/') + InstallerName()), m_number(number),
      m_reportPath(m_run.Scratch() + QStringLiteral("/end-report"))
{
    MakeFolders();
    m_run.Configure();
    WriteFile(m_run.Installed(QStringLiteral("config.json")),
              FilesOf(0).value(QStringLiteral("config.json")));
    m_run.process.setStandardInputFile(QProcess::nullDevice());
    LearnBaseline();
    Remains::AdoptOrphans();
    m_ownChildren = Remains::Children();
}

/// Gives the system's libraries folders of their own, because they would create them in the home
/// folder, which is searched for remains; and the updater one for temporary files, which the server
/// of this lane does not use.
void Lane::MakeFolders()
{
    const QString temporary = m_run.Scratch() + QStringLiteral("/tmp");
    QDir().mkpath(temporary);
    qputenv("TMPDIR", QFile::encodeName(temporary));
    const QString runtime = m_run.Scratch() + QStringLiteral("/runtime");
    QDir().mkpath(runtime);
    QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime));
    qputenv("XDG_CACHE_HOME", QFile::encodeName(m_run.Scratch() + QStringLiteral("/cache")));
}

void Lane::LearnBaseline()
{
    QProcess bare;
    bare.setProcessEnvironment(WatchedEnvironment());
    bare.setStandardInputFile(QProcess::nullDevice());
    bare.setProcessChannelMode(QProcess::ForwardedChannels);
    bare.start(QStringLiteral(BARE_PROGRAM), QStringList());
    if (!bare.waitForFinished() || bare.exitCode() != 0)
        qFatal("the bare program failed: %s", qPrintable(bare.errorString()));
    m_baseline = QString::fromUtf8(ReadFile(m_reportPath)).split(QLatin1Char('\n'));
    if (!m_baseline.contains(QStringLiteral("end")))
        qFatal("the bare program left no end report");
    QFile::remove(m_reportPath);
}

void Lane::Run(int updates, int checks)
{
    const QString profile = QStringLiteral("--profile=a \"b\" 中");
    const QStringList bare{QStringLiteral("-autoupdate")};
    const QString immediately = QStringLiteral("-immediately");
    const QString noRemind = QStringLiteral("-noremid");
    const QString link = QStringLiteral("qorb-meeting://4711");
    const QString url = QStringLiteral("--url=4711");

    const QVector<Update> updateKinds{
        {"zip package, English", "en", "1", false, {immediately}, bare},
        {"zip package, forced, Chinese", "zh", "2", false, {immediately, profile}, {profile}},
        {"zip package, link", "en", "1", false, {noRemind, immediately, link}, {url}},
        {"installer, Chinese", "zh", "1", true, {immediately, link}, {link}},
        {"installer, forced, English", "en", "2", true, {profile, immediately}, {profile}}};
    const QVector<Check> checkKinds{
        {"same version",
         200,
         R"({"code": "000000", "biz": {"latestVersion": "VERSION", "update": "1"}})",
         false,
         {},
         bare},
        {"no update",
         200,
         R"({"code": "000000", "biz": {"latestVersion": "9", "update": "0"}})",
         true,
         {profile},
         {profile}},
        {"another code", 200, R"({"code": "000001"})", false, {noRemind}, bare},
        {"no JSON", 200, "<html></html>", false, {link}, {url}},
        {"service fails", 503, "", false, {}, bare}};

    const qint64 runs = updates + checks;
    int update = m_number;
    int check = m_number;
    for (qint64 run = 0; run < runs; ++run) {
        m_run.server.Reset();
        if ((run + 1) * updates / runs > run * updates / runs)
            RunUpdate(updateKinds.at(update++ % updateKinds.size()));
        else
            RunCheck(checkKinds.at(check++ % checkKinds.size()));
    }
}

QJsonObject Lane::Figures() const
{
    QJsonObject object;
    for (auto figure = m_figures.begin(); figure != m_figures.end(); ++figure)
        object.insert(figure.key(), figure.value());
    return object;
}

void Lane::RunUpdate(const Update &update)
{
    m_kind = QLatin1String(update.name);
    Count(Figure::Updates);
    m_run.SetLanguage(update.language);
    const QString before = Version(m_release++);
    const QString package =
        update.installer ? InstallerName() : PackageName(m_release) + QStringLiteral(".zip");
    m_run.Publish(update.installer ? ReadFile(m_installer.Path()) : PackageOf(m_release), package,
                  {{QStringLiteral("update"), QLatin1String(update.mode)},
                   {QStringLiteral("latestVersion"), Version(m_release)},
                   {QStringLiteral("updateType"), update.installer ? 0 : 1}});

    if (!RunUpdater(update.arguments)) {
        --m_release;
        return;
    }

    m_downloaded = QStringList{package};
    m_hasMarker = !update.installer;
    JudgeRequests(before, package);
    if (update.installer) {
        m_downloaded.append(CallsOf(package));
        JudgeInstallerStart(update.passedOn);
        JudgeFiles();
        // An installer would have done this.
        WriteFile(m_run.Installed(QStringLiteral("config.json")),
                  FilesOf(m_release).value(QStringLiteral("config.json")));
        return;
    }
    m_zipRelease = m_release;
    const QStringList files = FilesOf(m_release).keys();
    for (const QString &file : files)
        m_downloaded.append(PackageName(m_release) + QLatin1Char('/') + file);
    JudgeClientStart(update.passedOn);
    JudgeInstalled();
    JudgeFiles();
}

void Lane::RunCheck(const Check &check)
{
    m_kind = QStringLiteral("check, ") + QLatin1String(check.name);
    Count(Figure::Checks);
    const QString answer =
        QString::fromUtf8(check.answer).replace(QStringLiteral("VERSION"), Version(m_release));
    m_run.server.Script(CheckPath(), QJsonObject{{QStringLiteral("status"), check.status},
                                                 {QStringLiteral("body"), answer}});

    if (!RunUpdater(check.arguments))
        return;

    m_hasMarker = m_hasMarker && !check.removesMarker;
    JudgeRequests(Version(m_release), QString());
    JudgeClientStart(check.passedOn);
    JudgeFiles();
}

bool Lane::RunUpdater(const QStringList &arguments)
{
    if (m_runs++ % kFullLogEvery == 0)
        NearlyFillLog();
    const qint64 logSize = QFileInfo(LogPath()).size();
    m_run.process.setProcessEnvironment(WatchedEnvironment());
    {
        // Cuts a line if the log grows beyond its limit even for a moment.
        const FullDisk ceiling(kLogLimit + kLongestLogLine);
        m_run.Start(arguments);
    }
    const bool ended = JudgeExitCode(m_run.WaitForEnd());
    JudgeEndReport();
    JudgeProcesses();
    if (ended)
        JudgeLog(logSize);
    return ended;
}

/// Leaves a different amount of room each time, so that over many runs every line is once the first
/// that does not fit.
void Lane::NearlyFillLog()
{
    QDir().mkpath(QFileInfo(LogPath()).path());
    QFile log(LogPath());
    if (!log.open(QIODevice::ReadWrite) || !log.resize(kLogLimit - qint64(m_runs) * 61 % kLogRoom))
        qFatal("cannot fill the log: %s", qPrintable(log.errorString()));
}

QProcessEnvironment Lane::WatchedEnvironment() const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(END_REPORT_LIBRARY));
    environment.insert(QStringLiteral("LONGRUN_END_REPORT"), m_reportPath);
    return environment;
}

bool Lane::JudgeExitCode(int exitCode)
{
    const bool leaked = exitCode == kLeaked;
    if (leaked)
        Count(Figure::LeakReports);
    if (!Expect(exitCode == 0, QStringLiteral("the exit code is %1").arg(exitCode)))
        return leaked;
    Count(Figure::CleanExits);
    return true;
}

void Lane::JudgeEndReport()
{
    const bool written = QFile::exists(m_reportPath);
    const QString report = written ? QString::fromUtf8(ReadFile(m_reportPath)) : QString();
    QFile::remove(m_reportPath);
    if (!Expect(report.endsWith(QLatin1String("end\n")),
                QStringLiteral("the process left no end report")))
        return;
    Count(Figure::EndReports);

    static const QMap<QString, const char *> figures{
        {QStringLiteral("descriptor"), Figure::Descriptors},
        {QStringLiteral("thread"), Figure::Threads},
        {QStringLiteral("object"), Figure::Objects},
        {QStringLiteral("segment"), Figure::Segments},
        {QStringLiteral("semaphores"), Figure::Semaphores}};
    const QStringList left = Remains::Without(report.split(QLatin1Char('\n')), m_baseline);
    for (const QString &line : left) {
        const QString kind = line.section(QLatin1Char(' '), 0, 0);
        if (kind == QLatin1String("late")) {
            Count(Figure::LateDetachments);
            continue;
        }
        Count(figures.value(kind, Figure::Objects));
        Expect(false, QStringLiteral("left at the end: ") + line);
    }
}

void Lane::JudgeProcesses()
{
    QStringList left;
    // A detached program may not have recorded its start yet.
    (void)QTest::qWaitFor(
        [&] {
            left = Remains::Without(Remains::Children(), m_ownChildren);
            return left.isEmpty();
        },
        kProcessesEndMs);
    Count(Figure::Processes, left.size());
    Expect(left.isEmpty(), QStringLiteral("processes left: ") + left.join(QStringLiteral(", ")));
}

void Lane::JudgeLog(qint64 sizeBefore)
{
    QFile log(LogPath());
    if (!log.open(QIODevice::ReadOnly)) {
        Expect(false, QStringLiteral("there is no log"));
        return;
    }
    const bool emptied = log.size() < sizeBefore;
    if (emptied) {
        Count(Figure::LogEmptied);
        Expect(sizeBefore > kLogLimit - kLogRoom, QStringLiteral("the log was emptied too early"));
    } else {
        log.seek(sizeBefore);
    }

    QList<QByteArray> lines = log.readAll().split('\n');
    Expect(lines.takeLast().isEmpty(), QStringLiteral("the log's last line is cut"));
    for (const QByteArray &line : qAsConst(lines)) {
        CountMost(Figure::LogLongestLine, line.size() + 1);
        Expect(line.startsWith('[') && line.endsWith('\r'),
               QStringLiteral("a line of the log has another form: ") + QString::fromUtf8(line));
    }
    CountMost(Figure::LogBytesAboveLimit, log.size() - kLogLimit);
    const qint64 lastLine = lines.isEmpty() ? 0 : lines.last().size() + 1;
    Expect(log.size() - lastLine <= kLogLimit,
           QStringLiteral("the log was written to when it was above its limit"));
}

void Lane::JudgeRequests(const QString &askedBy, const QString &package)
{
    const auto requests = m_run.server.Requests();
    const int expected = package.isEmpty() ? 1 : 2;
    if (!Expect(requests.size() == expected, QStringLiteral("%1 requests").arg(requests.size())))
        return;
    Expect(VersionIn(requests.first().body, "clientVersion") == askedBy,
           QStringLiteral("another version was sent: ") + QString::fromUtf8(requests.first().body));
    Expect(package.isEmpty() || requests.last().target == "/packages/" + package.toUtf8(),
           QStringLiteral("another package was asked for: ") +
               QString::fromUtf8(requests.last().target));
}

void Lane::JudgeClientStart(const QStringList &arguments)
{
    const QList<QByteArray> starts = NotedStarts(m_run.client.Path());
    const int count = starts.size() - m_clientStarts;
    m_clientStarts = starts.size();
    if (!Expect(count == 1, QStringLiteral("the client was started %1 times").arg(count)))
        return;
    if (Expect(starts.last() == Noted(arguments),
               QStringLiteral("the client was started with other arguments: ") +
                   QString::fromUtf8(QByteArray::fromHex(starts.last()))))
        Count(Figure::ClientStarts);
}

void Lane::JudgeInstallerStart(const QStringList &arguments)
{
    const QList<QByteArray> starts = NotedStarts(m_run.PackagePath(InstallerName()));
    if (!Expect(starts.size() == 1,
                QStringLiteral("the installer was started %1 times").arg(starts.size())))
        return;
    Expect(NotedStarts(m_run.client.Path()).size() == m_clientStarts,
           QStringLiteral("the client was started in addition to the installer"));
    if (Expect(starts.first() == Noted(arguments),
               QStringLiteral("the installer was started with other arguments: ") +
                   QString::fromUtf8(QByteArray::fromHex(starts.first()))))
        Count(Figure::InstallerStarts);
}

void Lane::JudgeInstalled()
{
    bool whole = true;
    const QMap<QString, QByteArray> files = FilesOf(m_release);
    for (auto file = files.begin(); file != files.end(); ++file) {
        const QString path = m_run.ClientFolder() + QLatin1Char('/') + file.key();
        whole = Expect(QFile::exists(path) && ReadFile(path) == file.value(),
                       file.key() + QStringLiteral(" is not the new one")) &&
                whole;
    }
    const QByteArray config = ReadFile(m_run.UpdateConfigFile());
    const QString recorded = VersionIn(config, "currentVersion");
    if (Expect(recorded == Version(m_release),
               QStringLiteral("the recorded version is ") + recorded) &&
        whole)
        Count(Figure::Installed);
}

void Lane::JudgeFiles()
{
    const QString imageName = m_run.ClientName();
    QStringList client{imageName, CallsOf(imageName), QStringLiteral("config.json"),
                       QStringLiteral("AutoUpdate/AutoUpdate"),
                       QStringLiteral("AutoUpdate/updateconfig.json")};
    QStringList home{QStringLiteral("AppData/Local/AutoUpdate/AutoUpdate.log"),
                     QStringLiteral("AppData/Roaming/norvaneAssistant/language.txt")};
    if (m_clientStarts == 0)
        client.removeAll(CallsOf(imageName));
    if (m_zipRelease > 0) {
        client += FilesOf(m_zipRelease).keys();
        home += QStringLiteral("AppData/Roaming/norvaneAssistant/update.log");
    }
    if (m_hasMarker)
        home += QStringLiteral("AppData/Roaming/norvaneAssistant/isShowUpdataInfo.txt");
    for (const QString &file : qAsConst(m_downloaded))
        home += m_run.PackagePath(file).mid(m_run.Home().size() + 1);

    const QMap<QString, QStringList> folders{{m_run.ClientFolder(), client},
                                             {m_run.Home(), home},
                                             {QFile::decodeName(qgetenv("TMPDIR")), {}}};
    for (auto folder = folders.begin(); folder != folders.end(); ++folder) {
        const QStringList there = Remains::Listing(folder.key());
        const QStringList expected = Remains::ListingOf(folder.value());
        const QStringList left = Remains::Without(there, expected);
        const QStringList missing = Remains::Without(expected, there);
        Count(Figure::Files, left.size());
        Expect(left.isEmpty(), QStringLiteral("files left: ") + left.join(QStringLiteral(", ")));
        Expect(missing.isEmpty(),
               QStringLiteral("files missing: ") + missing.join(QStringLiteral(", ")));
    }
}

QString Lane::Version(int release) const
{
    return QStringLiteral("1.%1.%2").arg(m_number).arg(release);
}

QString Lane::PackageName(int release) const
{
    return QStringLiteral("client-") + Version(release);
}

QMap<QString, QByteArray> Lane::FilesOf(int release) const
{
    const QByteArray version = Version(release).toUtf8();
    return {{QStringLiteral("config.json"), R"({"client": {"version": ")" + version + "\"}}"},
            {QStringLiteral("release.txt"), version},
            {QStringLiteral("plug ins/中文.bin"), version + ScriptedServer::Fill(200000)}};
}

QByteArray Lane::PackageOf(int release) const
{
    ZipMaker archive;
    const QMap<QString, QByteArray> files = FilesOf(release);
    const QStringList paths = Remains::ListingOf(files.keys());
    archive.AddFolder(PackageName(release));
    for (const QString &path : paths) {
        const QString entry = PackageName(release) + QLatin1Char('/') + path;
        if (path.endsWith(QLatin1Char('/')))
            archive.AddFolder(entry);
        else
            archive.AddFile(entry, files.value(path));
    }
    return archive.Bytes();
}

QString Lane::LogPath() const
{
    return m_run.LogFile();
}

void Lane::Count(const char *figure, qint64 number)
{
    m_figures[QLatin1String(figure)] += number;
}

void Lane::CountMost(const char *figure, qint64 number)
{
    qint64 &most = m_figures[QLatin1String(figure)];
    most = std::max(most, number);
}

bool Lane::Expect(bool holds, const QString &otherwise)
{
    if (holds)
        return true;
    Count(Figure::Findings);
    std::fprintf(stderr, "lane %d, run %d (%s): %s\n", m_number, m_runs, qPrintable(m_kind),
                 qPrintable(otherwise));
    return false;
}
