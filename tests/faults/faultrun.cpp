// SPDX-License-Identifier: MIT
#include "tests/faults/faultrun.h"

#include "tests/support/zipmaker.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QTest>

#include <utility>

namespace
{

const QString kVersion = QStringLiteral("2.1.3");
const QString kNextVersion = QStringLiteral("2.1.4");
const QString kNextPackage = QStringLiteral("client-2.1.4.zip");
const QString kProgressDialog = QStringLiteral("DwonDialog");
const QString kProgressLine = QStringLiteral("labInstall");

constexpr int kDataBytes = 300000;

QByteArray ClientConfig(const QString &version)
{
    return R"({"client": {"version": ")" + version.toLatin1() + R"("}})";
}

/// A package of a client with a configuration, a large file and a file in a folder.
QByteArray PackageOf(const QString &version)
{
    const QString folder = QStringLiteral("client-") + version;
    return ZipMaker()
        .AddFolder(folder)
        .AddFile(folder + QStringLiteral("/config.json"), ClientConfig(version))
        .AddFile(folder + QStringLiteral("/data.bin"), ScriptedServer::Fill(kDataBytes),
                 ZipMaker::Stored)
        .AddFolder(folder + QStringLiteral("/plug ins"))
        .AddFile(folder + QStringLiteral("/plug ins/last.txt"), "last")
        .Bytes();
}

/// The content of a file; null when there is none.
QByteArray ContentOf(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray content = file.readAll();
    return content.isNull() ? QByteArray("") : content;
}

QString WordsOf(const QJsonObject &windows)
{
    const QJsonObject progress = windows.value(kProgressDialog).toObject();
    if (!progress.isEmpty()) {
        if (progress.contains(FaultRun::ConfirmCancelButton))
            return QStringLiteral("the question whether to cancel");
        const QString button = progress.value(FaultRun::CancelOrRetryButton).toString();
        if (button == QLatin1String("Retry"))
            return QStringLiteral("\"%1\"").arg(progress.value(kProgressLine).toString());
        return FaultRun::Progress;
    }
    const QJsonObject prompt = windows.value(FaultRun::Prompt).toObject();
    if (!prompt.isEmpty())
        return prompt.contains(FaultRun::LaterButton) ? QStringLiteral("prompt")
                                                      : QStringLiteral("forced prompt");
    return {};
}

/// The file for the rows of this program, in the folder that scripts/faults reads.
QString TableFile()
{
    const QString folder = QStringLiteral(FAULT_TABLE_DIR);
    QDir().mkpath(folder);
    return folder + QLatin1Char('/') +
           QFileInfo(QCoreApplication::applicationFilePath()).baseName() + QStringLiteral(".tsv");
}

} // namespace

const QString FaultRun::PackageName = QStringLiteral("client-2.1.3.zip");
const QString FaultRun::PackagePage = QStringLiteral("/packages/client-2.1.3.zip");
const QString FaultRun::Progress = QStringLiteral("progress");
const QString FaultRun::NetworkError =
    QStringLiteral("progress, then \"Installation failed. Network exception, please check.\"");
const QString FaultRun::Corrupted =
    QStringLiteral("progress, then \"File conrrupted, update failed.\"");
const QString FaultRun::Untouched = QStringLiteral("old client");
const QString FaultRun::Updated =
    QStringLiteral("new client, the package, unpacked package, notes, marker, version recorded");

const QString FaultRun::UpdateButton = QStringLiteral("immedBtn");
const QString FaultRun::LaterButton = QStringLiteral("laterBtn");
const QString FaultRun::NeverPromptBox = QStringLiteral("checkRemid");
const QString FaultRun::CancelOrRetryButton = QStringLiteral("cancleBtn");
const QString FaultRun::ConfirmCancelButton = QStringLiteral("sbtn");
const QString FaultRun::Prompt = QStringLiteral("UpdateDialog");

const QByteArray &FaultRun::Package()
{
    static const QByteArray package = PackageOf(kVersion);
    return package;
}

FaultRun::FaultRun(QString fault)
    : m_windows(run.Scratch() + QStringLiteral("/windows")), m_fault(std::move(fault))
{
    static const bool tableIsNew = QFile::remove(TableFile());
    Q_UNUSED(tableIsNew)
}

QByteArray FaultRun::CheckAnswer(const QJsonObject &changes)
{
    return UpdaterRun::CheckAnswer(UpdaterRun::Offer(Package(), PackageName, changes));
}

void FaultRun::Offer(const QJsonObject &changes, const QJsonObject &configuration)
{
    run.Configure(configuration);
    run.Publish(Package(), PackageName, changes);
    WriteFile(run.Installed(QStringLiteral("of the user.txt")), "stays");
}

void FaultRun::ScriptCheck(QJsonObject step)
{
    const QString body = QStringLiteral("body");
    if (!step.contains(body) && !step.contains(QStringLiteral("bodyBase64")) &&
        !step.contains(QStringLiteral("fill")))
        step.insert(body, QString::fromUtf8(CheckAnswer()));
    run.server.Script(QStringLiteral("/check"), step);
}

void FaultRun::ScriptPackage(QJsonObject step)
{
    const QString body = QStringLiteral("bodyBase64");
    if (!step.contains(body) && !step.contains(QStringLiteral("body")) &&
        !step.contains(QStringLiteral("fill")))
        step.insert(body, QString::fromLatin1(Package().toBase64()));
    run.server.Script(PackagePage, step);
}

void FaultRun::Start()
{
    run.Start({QStringLiteral("-immediately")});
}

void FaultRun::RunThrough()
{
    Start();
    QCOMPARE(run.WaitForEnd(100000), 0);
}

void FaultRun::ReleaseOnceWritten(qint64 bytes)
{
    const QString package = run.PackagePath(PackageName);
    QVERIFY(QTest::qWaitFor([&] { return QFileInfo(package).size() == bytes; }, 30000));
    QVERIFY(run.server.Release(PackagePage));
}

void FaultRun::WaitForError()
{
    if (QTest::currentTestFailed())
        return;
    const auto isThere = [this] {
        return m_windows.Now()
                   .value(kProgressDialog)
                   .toObject()
                   .value(FaultRun::CancelOrRetryButton)
                   .toString() == QLatin1String("Retry");
    };
    QVERIFY2(QTest::qWaitFor(isThere, 30000), qPrintable(run.Log().join(QLatin1Char('\n'))));
}

void FaultRun::WaitForWidget(const QString &name)
{
    if (QTest::currentTestFailed())
        return;
    QVERIFY2(m_windows.WaitFor(name), qPrintable(run.Log().join(QLatin1Char('\n'))));
}

void FaultRun::Press(const QString &name)
{
    if (QTest::currentTestFailed())
        return;
    QVERIFY2(m_windows.Press(name), qPrintable(name));
}

void FaultRun::GiveUp()
{
    if (QTest::currentTestFailed())
        return;
    Press(kProgressDialog);
    Press(ConfirmCancelButton);
    if (QTest::currentTestFailed())
        return;
    QCOMPARE(run.WaitForEnd(), 0);
}

void FaultRun::Kill()
{
    run.process.kill();
    QVERIFY(run.process.waitForFinished());
}

QString FaultRun::Seen() const
{
    QStringList words;
    const QVector<QJsonObject> changes = m_windows.Changes();
    for (const QJsonObject &windows : changes) {
        const QString word = WordsOf(windows);
        if (!word.isEmpty() && (words.isEmpty() || words.last() != word))
            words.append(word);
    }
    return words.isEmpty() ? QStringLiteral("nothing") : words.join(QStringLiteral(", then "));
}

QString FaultRun::ClientState() const
{
    const QString folder = run.ClientFolder();
    if (ContentOf(folder + QStringLiteral("/of the user.txt")) != "stays")
        return QStringLiteral("a file of the user is lost");
    const QByteArray config = ContentOf(folder + QStringLiteral("/config.json"));
    const bool hasData = QFile::exists(folder + QStringLiteral("/data.bin"));
    const bool hasLast = QFile::exists(folder + QStringLiteral("/plug ins"));
    if (!hasData && !hasLast) {
        if (config == ClientConfig(QStringLiteral("1.0.0")))
            return Untouched;
        if (config.isNull())
            return Untouched + QStringLiteral(" without its configuration");
        if (QJsonDocument::fromJson(config).isNull())
            return Untouched + QStringLiteral(" with a damaged configuration");
    }
    const bool isNew =
        config == ClientConfig(kVersion) &&
        ContentOf(folder + QStringLiteral("/data.bin")) == ScriptedServer::Fill(kDataBytes) &&
        ContentOf(folder + QStringLiteral("/plug ins/last.txt")) == "last";
    return isNew ? QStringLiteral("new client") : QStringLiteral("part of the new client");
}

QStringList FaultRun::PackageState() const
{
    QStringList state;
    const QByteArray package = ContentOf(run.PackagePath(PackageName));
    if (package == Package())
        state.append(QStringLiteral("the package"));
    else if (!package.isNull() && package.isEmpty())
        state.append(QStringLiteral("an empty package file"));
    else if (!package.isNull() && Package().startsWith(package))
        state.append(QStringLiteral("part of the package"));
    else if (!package.isNull())
        state.append(QStringLiteral("another file as the package"));

    const QString unpacked = run.PackagePath(QStringLiteral("client-2.1.3"));
    if (ContentOf(unpacked + QStringLiteral("/plug ins/last.txt")) == "last")
        state.append(QStringLiteral("unpacked package"));
    else if (QFile::exists(unpacked))
        state.append(QStringLiteral("part of it unpacked"));
    return state;
}

QStringList FaultRun::RecordState() const
{
    QStringList state;
    const QByteArray notes = ContentOf(run.NotesFile());
    if (!notes.isNull())
        state.append(notes == "New version" ? QStringLiteral("notes")
                                            : QStringLiteral("damaged notes"));
    const QByteArray marker = ContentOf(run.MarkerFile());
    if (!marker.isNull())
        state.append(marker == "1" ? QStringLiteral("marker") : QStringLiteral("empty marker"));

    const QByteArray config = ContentOf(run.UpdateConfigFile());
    const QJsonObject read = QJsonDocument::fromJson(config).object();
    if (config.isNull())
        state.append(QStringLiteral("no updateconfig.json"));
    else if (read.isEmpty())
        state.append(QStringLiteral("damaged updateconfig.json"));
    else if (read.value(QStringLiteral("currentVersion")).toString() == kVersion)
        state.append(QStringLiteral("version recorded"));
    return state;
}

QString FaultRun::Left() const
{
    return (QStringList(ClientState()) + PackageState() + RecordState()).join(QStringLiteral(", "));
}

void FaultRun::MustLeadTo(const FaultOutcome &wanted)
{
    if (QTest::currentTestFailed())
        return;
    const QByteArray log = run.Log().join(QLatin1Char('\n')).toUtf8();
    run.client.WaitForCalls(wanted.clientStarts);
    QVERIFY2(run.client.Calls().size() == wanted.clientStarts, log.constData());
    QVERIFY2(Seen() == wanted.seen, (Seen().toUtf8() + '\n' + log).constData());
    QVERIFY2(Left() == wanted.left, (Left().toUtf8() + '\n' + log).constData());
    m_outcome = wanted;
}

void FaultRun::NextRunMustWork()
{
    if (QTest::currentTestFailed())
        return;
    if (run.process.state() != QProcess::NotRunning)
        GiveUp();
    run.server.Reset();
    run.Publish(PackageOf(kNextVersion), kNextPackage,
                {{QStringLiteral("latestVersion"), kNextVersion}});
    run.process.setProcessEnvironment(QProcessEnvironment());
    RunThrough();
    const QByteArray log = run.Log().join(QLatin1Char('\n')).toUtf8();
    QVERIFY2(ContentOf(run.Installed(QStringLiteral("config.json"))) == ClientConfig(kNextVersion),
             log.constData());
    const int starts = m_outcome.clientStarts + m_startsSince + 1;
    QVERIFY2(run.client.WaitForCalls(starts), log.constData());
    // It was not started once more either.
    QCOMPARE(run.client.Calls().size(), starts);
    AddRow();
}

void FaultRun::MustEndWith(const FaultOutcome &wanted)
{
    MustLeadTo(wanted);
    NextRunMustWork();
}

void FaultRun::AddRow() const
{
    const QString starts = m_outcome.clientStarts == 0   ? QStringLiteral("no")
                           : m_outcome.clientStarts == 1 ? QStringLiteral("once")
                                                         : QStringLiteral("twice");
    const QStringList row = {m_fault, m_outcome.seen, m_outcome.left, starts, m_outcome.note};
    QFile table(TableFile());
    if (!table.open(QIODevice::Append) ||
        table.write(row.join(QLatin1Char('\t')).toUtf8() + '\n') < 0)
        qFatal("cannot write %s: %s", qPrintable(table.fileName()),
               qPrintable(table.errorString()));
}
