#include "tests/e2e/updaterrun.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSharedMemory>
#include <QTest>

namespace
{

QString ProgramName()
{
    return QFileInfo(QStringLiteral(UPDATER_PROGRAM)).fileName();
}

/**
 * Finds a folder for temporary files whose guard is free. The guard of a run that was killed stays
 * behind, and what names it is the number of its key file alone, which the file system gives away
 * again: a run of another test would meet a guard that nobody holds.
 */
void ChooseGuard(const TestHome &home)
{
    for (int attempt = 0; attempt < 100; ++attempt) {
        const QString folder = home.Scratch() + QStringLiteral("/tmp-%1").arg(attempt);
        // Takes the number that the last attempt's key file gave back.
        WriteFile(folder + QStringLiteral("/taken"), "");
        qputenv("TMPDIR", QFile::encodeName(folder));
        QSharedMemory probe(QStringLiteral("ZellAutoUpdate"));
        if (probe.create(1))
            return;
    }
    qFatal("no free guard");
}

/// Takes away the guard of a run that was killed, or that left without its worker.
void DropGuard()
{
    QSharedMemory left(QStringLiteral("ZellAutoUpdate"));
    left.attach();
}

} // namespace

UpdaterRun::UpdaterRun()
    : imageName(TestHome::UniqueImageName()),
      client(home.ClientFolder() + QLatin1Char('/') + imageName)
{
    QFile program(QStringLiteral(UPDATER_PROGRAM));
    if (!program.copy(ProgramPath()))
        qFatal("cannot copy the program to %s: %s", qPrintable(ProgramPath()),
               qPrintable(program.errorString()));
    ChooseGuard(home);
    SetLanguage("en");
}

UpdaterRun::~UpdaterRun()
{
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished();
    }
    DropGuard();
}

void UpdaterRun::Configure()
{
    Configure({});
}

void UpdaterRun::Configure(const QJsonObject &changes)
{
    QJsonObject config{
        {QStringLiteral("appName"), imageName},
        {QStringLiteral("appConfigFile"), QStringLiteral("config.json")},
        {QStringLiteral("appPath"), home.ClientFolder() + QLatin1Char('/')},
        {QStringLiteral("updateCheckUrl"), server.HttpsUrl(QStringLiteral("/check"))},
        {QStringLiteral("updatePackageUrl"), server.HttpUrl(QStringLiteral("/packages/"))},
        {QStringLiteral("noRemindVersion"), QString()},
        {QStringLiteral("noRemind"), 0}};
    for (auto change = changes.begin(); change != changes.end(); ++change)
        config.insert(change.key(), change.value());
    home.WriteUpdateConfig(QJsonDocument(config).toJson());
    WriteFile(home.ClientFolder() + QStringLiteral("/config.json"),
              R"({"client": {"version": "1.0.0"}})");
}

void UpdaterRun::SetLanguage(const QByteArray &language)
{
    WriteFile(home.ClientDataFolder() + QStringLiteral("/language.txt"), language);
}

QByteArray UpdaterRun::CheckAnswer(const QJsonObject &biz)
{
    const QJsonObject answer{{QStringLiteral("code"), QStringLiteral("000000")},
                             {QStringLiteral("desc"), QStringLiteral("success")},
                             {QStringLiteral("biz"), biz}};
    return QJsonDocument(answer).toJson(QJsonDocument::Compact);
}

QJsonArray UpdaterRun::ManyHeaders(const QString &name, int count)
{
    QJsonArray headers;
    for (int line = 0; line < count; ++line) {
        QString own = name;
        own.replace(QLatin1String("%1"), QString::number(line));
        headers.append(QJsonArray{own, QStringLiteral("a%1=b").arg(line)});
    }
    return headers;
}

void UpdaterRun::AnswerCheck(const QJsonObject &biz)
{
    server.Script(QStringLiteral("/check"),
                  QJsonObject{{QStringLiteral("body"), QString::fromUtf8(CheckAnswer(biz))}});
}

QJsonObject UpdaterRun::Offer(const QByteArray &package, const QString &name,
                              const QJsonObject &changes)
{
    const QByteArray md5 = QCryptographicHash::hash(package, QCryptographicHash::Md5).toHex();
    QJsonObject biz{
        {QStringLiteral("id"), name},
        {QStringLiteral("update"), QStringLiteral("1")},
        {QStringLiteral("latestVersion"), QStringLiteral("2.1.3")},
        {QStringLiteral("latestVersionUrl"), QStringLiteral("https://example.invalid/") + name},
        {QStringLiteral("latestVersionInfo"), QStringLiteral("新版本&  New version ")},
        {QStringLiteral("md5"), QString::fromLatin1(md5)},
        {QStringLiteral("packageSize"), package.size()},
        {QStringLiteral("updateType"), 1}};
    for (auto change = changes.begin(); change != changes.end(); ++change)
        biz.insert(change.key(), change.value());
    return biz;
}

void UpdaterRun::Publish(const QByteArray &package, const QString &name, const QJsonObject &changes)
{
    AnswerCheck(Offer(package, name, changes));
    server.Script(
        QStringLiteral("/packages/") + name,
        QJsonObject{{QStringLiteral("bodyBase64"), QString::fromLatin1(package.toBase64())}});
}

QString UpdaterRun::PackagePath(const QString &name) const
{
    return home.Home() + QStringLiteral("/AppData/Local/") +
           imageName.section(QLatin1Char('.'), 0, 0) + QLatin1Char('/') + name;
}

QString UpdaterRun::ProgramPath() const
{
    return home.ProgramFolder() + QLatin1Char('/') + ProgramName();
}

void UpdaterRun::Start(const QStringList &arguments)
{
    process.setWorkingDirectory(home.Scratch());
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.start(ProgramPath(), arguments);
    if (!process.waitForStarted())
        qFatal("the updater does not start: %s", qPrintable(process.errorString()));
}

int UpdaterRun::WaitForEnd(int timeoutMs)
{
    if (!QTest::qWaitFor([this] { return process.state() == QProcess::NotRunning; }, timeoutMs))
        qFatal("the updater does not end; its log:\n%s", qPrintable(Log().join(QLatin1Char('\n'))));
    if (process.exitStatus() != QProcess::NormalExit)
        qFatal("the updater crashed; its log:\n%s", qPrintable(Log().join(QLatin1Char('\n'))));
    return process.exitCode();
}

int UpdaterRun::Run(const QStringList &arguments)
{
    Start(arguments);
    return WaitForEnd();
}

QStringList UpdaterRun::Log() const
{
    if (!QFile::exists(home.Home() + QStringLiteral("/AppData/Local/AutoUpdate/AutoUpdate.log")))
        return {};
    static const QRegularExpression form(QStringLiteral(
        R"(^\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\] (\[(?:DEBUG|INFO|WARNING)\] \(:0\) .*)$)"));
    QStringList messages;
    for (const QString &line : home.LogLines()) {
        const QRegularExpressionMatch match = form.match(line);
        if (!match.hasMatch())
            qFatal("a log line has another form: %s", qPrintable(line));
        messages.append(match.captured(1));
    }
    return messages;
}

bool UpdaterRun::WaitForLog(const QString &line, int timeoutMs) const
{
    return QTest::qWaitFor([&] { return Log().contains(line); }, timeoutMs);
}

QString UpdaterRun::ConfigurationLine() const
{
    return QStringLiteral("[INFO] (:0) currentVersion: \"1.0.0\" ,updateCheckUrl: \"%1\" "
                          ",m_getPackUrl: \"%2\" ,m_remide: 0")
        .arg(server.HttpsUrl(QStringLiteral("/check")),
             server.HttpUrl(QStringLiteral("/packages/")));
}
