// SPDX-License-Identifier: MIT
#include "tests/support/updaterrun.h"

#include "tests/support/loglines.h"

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
 * Removes the guard of a run that was killed or that ended without its worker. The file system
 * reuses the inode number of the guard's key file, so the next run could get the same key.
 */
void DropGuard()
{
    QSharedMemory left(QStringLiteral("ZellAutoUpdate"));
    left.attach();
}

} // namespace

UpdaterRun::UpdaterRun()
{
    QFile program(QStringLiteral(UPDATER_PROGRAM));
    if (!program.copy(ProgramPath()))
        qFatal("cannot copy the program to %s: %s", qPrintable(ProgramPath()),
               qPrintable(program.errorString()));
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
        {QStringLiteral("appName"), ClientName()},
        {QStringLiteral("appConfigFile"), QStringLiteral("config.json")},
        {QStringLiteral("appPath"), ClientFolder() + QLatin1Char('/')},
        {QStringLiteral("updateCheckUrl"), server.HttpsUrl(QStringLiteral("/check"))},
        {QStringLiteral("updatePackageUrl"), server.HttpUrl(QStringLiteral("/packages/"))},
        {QStringLiteral("noRemindVersion"), QString()},
        {QStringLiteral("noRemind"), 0}};
    for (auto change = changes.begin(); change != changes.end(); ++change)
        config.insert(change.key(), change.value());
    WriteUpdateConfig(QJsonDocument(config).toJson());
    WriteFile(Installed(QStringLiteral("config.json")), R"({"client": {"version": "1.0.0"}})");
}

void UpdaterRun::SetLanguage(const QByteArray &language)
{
    WriteFile(ClientDataFolder() + QStringLiteral("/language.txt"), language);
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
    return DownloadFolder() + QLatin1Char('/') + name;
}

QString UpdaterRun::ProgramPath() const
{
    return ProgramFolder() + QLatin1Char('/') + ProgramName();
}

void UpdaterRun::Start(const QStringList &arguments)
{
    process.setWorkingDirectory(Scratch());
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
    if (!QFile::exists(LogFile()))
        return {};
    static const QRegularExpression form(QStringLiteral(
        R"(^\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\] (\[(?:DEBUG|INFO|WARNING)\] )\(:0\) (.*)$)"));
    QStringList messages;
    for (const QString &line : LogLines()) {
        const QRegularExpressionMatch match = form.match(line);
        if (!match.hasMatch())
            qFatal("a log line has another form: %s", qPrintable(line));
        messages.append(match.captured(1) + match.captured(2));
    }
    return messages;
}

bool UpdaterRun::WaitForLog(const QString &line, int timeoutMs) const
{
    return QTest::qWaitFor([&] { return Log().contains(line); }, timeoutMs);
}

QString UpdaterRun::ConfigurationLine() const
{
    return LogLine::Configuration(QStringLiteral("1.0.0"),
                                  server.HttpsUrl(QStringLiteral("/check")),
                                  server.HttpUrl(QStringLiteral("/packages/")), 0);
}
