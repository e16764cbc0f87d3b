// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "tests/support/logcapture.h"
#include "tests/support/loglines.h"
#include "tests/support/resourcelimits.h"
#include "tests/support/testhome.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

namespace
{

const QString remid = QStringLiteral("remid");
const QString version = QStringLiteral("version");

QString UpdateConfigPath(const TestHome &home)
{
    return home.UpdateConfigFile();
}

QByteArray UpdateConfig(const TestHome &home)
{
    return ReadFile(UpdateConfigPath(home));
}

/// The texts of all fields, to compare later.
QStringList Fields()
{
    const Global &global = Global::instance;
    return {global.appName,         global.appConfigFile,     global.appPath,
            global.updateCheckUrl,  global.updatePackageUrl,  global.currentVersion,
            global.noRemindVersion, global.packageDir,        QString::number(global.noRemind),
            global.latestVersion,   global.latestVersionInfo, global.scriptPath,
            global.language};
}

/// Offers version 2.1.3 to the installed 1.0.0.
void FillFields(const TestHome &home)
{
    Global &global = Global::instance;
    global.appName = QStringLiteral("Client.exe");
    global.appConfigFile = QStringLiteral("config.json");
    global.appPath = home.ClientFolder() + QLatin1Char('/');
    global.currentVersion = QStringLiteral("1.0.0");
    global.noRemindVersion = QStringLiteral("1.9.0");
    global.noRemind = 0;
    global.latestVersion = QStringLiteral("2.1.3");
}

QString ClientConfigPath(const TestHome &home)
{
    return home.Installed(QStringLiteral("config.json"));
}

} // namespace

class TestWriteBack : public QObject
{
    Q_OBJECT

private slots:
    void neverRemindIsRecordedInAnExistingFile();
    void installedVersionKeepsAnEarlierChoice();
    void newFileHoldsExactlyThreeKeys_data();
    void newFileHoldsExactlyThreeKeys();
    void existingFileGetsOnlyTheKeysOfItsKind_data();
    void existingFileGetsOnlyTheKeysOfItsKind();
    void anyOtherWordOnlyRewrites_data();
    void anyOtherWordOnlyRewrites();
    void keyBehindAByteOrderMarkIsAnotherKey();
    void otherKeysAndTheirValuesAreKept();
    void endOfALongerTextStaysBehind();
    void leftoverOfWhiteSpaceDoesNoHarm();
    void textThatDoesNotParseIsRebuiltOverTheOldBytes_data();
    void textThatDoesNotParseIsRebuiltOverTheOldBytes();
    void versionIsWrittenAsItIs_data();
    void versionIsWrittenAsItIs();
    void writingTwiceGivesTheSameFile();
    void freshlyWrittenFileNamesNoClient();
    void fileThatCannotBeOpenedFails_data();
    void fileThatCannotBeOpenedFails();
#ifdef Q_OS_UNIX
    void fileThatCannotBeMadeFails_posix();
    void errorOfAFileIsTheOneItHas_posix();
    void failedWriteCountsAsSuccess_posix();
#endif
    void fileOfTheWorkingFolderIsWritten();
    void clientVersionIsReplacedAndTheRestKept();
    void clientObjectIsAddedWhenMissing_data();
    void clientObjectIsAddedWhenMissing();
    void clientConfigIsMadeWhenMissing();
    void clientConfigIsNotTruncated();
    void clientConfigPathIsAPlainPrefix();
    void clientConfigThatCannotBeOpenedFails_data();
    void clientConfigThatCannotBeOpenedFails();
};

void TestWriteBack::neverRemindIsRecordedInAnExistingFile()
{
    const TestHome home;
    FillFields(home);
    const QStringList fields = Fields();
    home.WriteUpdateConfig(
        R"({"noRemind": 0, "noRemindVersion": "", "currentVersion": "1.0.0", "appName": "a"})");

    const LogCapture log;
    QCOMPARE(Global::instance.WriteConfigToFile(remid), 0);

    QCOMPARE(UpdateConfig(home), QByteArray("{\n"
                                            "    \"appName\": \"a\",\n"
                                            "    \"currentVersion\": \"1.0.0\",\n"
                                            "    \"noRemind\": 1,\n"
                                            "    \"noRemindVersion\": \"2.1.3\"\n"
                                            "}\n"));
    QCOMPARE(Fields(), fields);
    QCOMPARE(log.Messages(), QStringList());
}

void TestWriteBack::installedVersionKeepsAnEarlierChoice()
{
    const TestHome home;
    FillFields(home);
    const QStringList fields = Fields();
    home.WriteUpdateConfig(
        R"({"noRemind": 1, "noRemindVersion": "2.0.0", "currentVersion": "1.0.0"})");

    const LogCapture log;
    QCOMPARE(Global::instance.WriteConfigToFile(version), 0);

    QCOMPARE(UpdateConfig(home), QByteArray("{\n"
                                            "    \"currentVersion\": \"2.1.3\",\n"
                                            "    \"noRemind\": 1,\n"
                                            "    \"noRemindVersion\": \"2.0.0\"\n"
                                            "}\n"));
    QCOMPARE(Fields(), fields);
    QCOMPARE(log.Messages(), QStringList());
}

void TestWriteBack::newFileHoldsExactlyThreeKeys_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("remid") << remid
                           << QByteArray("{\n"
                                         "    \"currentVersion\": \"\",\n"
                                         "    \"noRemind\": 1,\n"
                                         "    \"noRemindVersion\": \"2.1.3\"\n"
                                         "}\n");
    QTest::newRow("version") << version
                             << QByteArray("{\n"
                                           "    \"currentVersion\": \"2.1.3\",\n"
                                           "    \"noRemind\": 0,\n"
                                           "    \"noRemindVersion\": \"\"\n"
                                           "}\n");
    QTest::newRow("another word") << QStringLiteral("remind") << QByteArray("{\n}\n");
}

void TestWriteBack::newFileHoldsExactlyThreeKeys()
{
    QFETCH(QString, kind);
    const TestHome home;
    FillFields(home);
    const QStringList fields = Fields();
    QCOMPARE(Global::instance.WriteConfigToFile(kind), 0);
    QTEST(UpdateConfig(home), "content");
    QCOMPARE(Fields(), fields);
}

void TestWriteBack::existingFileGetsOnlyTheKeysOfItsKind_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QByteArray>("after");
    const QByteArray onlyRemind =
        "{\n    \"noRemind\": 1,\n    \"noRemindVersion\": \"2.1.3\"\n}\n";
    const QByteArray onlyVersion = "{\n    \"currentVersion\": \"2.1.3\"\n}\n";
    QTest::newRow("remid, empty object") << QByteArray("{}") << remid << onlyRemind;
    QTest::newRow("version, empty object") << QByteArray("{}") << version << onlyVersion;
    QTest::newRow("remid, empty file") << QByteArray() << remid << onlyRemind;
    QTest::newRow("version, empty file") << QByteArray() << version << onlyVersion;
    QTest::newRow("version, array") << QByteArray("[1]") << version << onlyVersion;
}

void TestWriteBack::existingFileGetsOnlyTheKeysOfItsKind()
{
    QFETCH(QByteArray, before);
    QFETCH(QString, kind);
    const TestHome home;
    FillFields(home);
    home.WriteUpdateConfig(before);
    QCOMPARE(Global::instance.WriteConfigToFile(kind), 0);
    QTEST(UpdateConfig(home), "after");
}

void TestWriteBack::anyOtherWordOnlyRewrites_data()
{
    QTest::addColumn<QString>("kind");
    for (const char *kind : {"Remid", "REMID", "remind", "Version", "versions", "version ", ""})
        QTest::addRow("\"%s\"", kind) << QString::fromLatin1(kind);
}

void TestWriteBack::anyOtherWordOnlyRewrites()
{
    QFETCH(QString, kind);
    const TestHome home;
    FillFields(home);
    home.WriteUpdateConfig(R"({"noRemindVersion":"x","noRemind":5,"currentVersion":"y"})");
    QCOMPARE(Global::instance.WriteConfigToFile(kind), 0);
    QCOMPARE(UpdateConfig(home), QByteArray("{\n"
                                            "    \"currentVersion\": \"y\",\n"
                                            "    \"noRemind\": 5,\n"
                                            "    \"noRemindVersion\": \"x\"\n"
                                            "}\n"));
}

void TestWriteBack::keyBehindAByteOrderMarkIsAnotherKey()
{
    const TestHome home;
    FillFields(home);
    home.WriteUpdateConfig("{\"noRemind\":0,\"\xef\xbb\xbfnoRemind\":7}");

    QCOMPARE(Global::instance.WriteConfigToFile(remid), 0);

    // Qt drops the byte order mark of the other key.
    QCOMPARE(UpdateConfig(home), QByteArray("{\n"
                                            "    \"noRemind\": 1,\n"
                                            "    \"noRemindVersion\": \"2.1.3\",\n"
                                            "    \"noRemind\": 7\n"
                                            "}\n"));
}

void TestWriteBack::otherKeysAndTheirValuesAreKept()
{
    const TestHome home;
    FillFields(home);
    home.WriteUpdateConfig(
        u8R"({"z": [1, 2.5, null, true], "a": {"b": "值", "c": "\"\\"}, "noRemind": "1"})");
    QCOMPARE(Global::instance.WriteConfigToFile(version), 0);
    QCOMPARE(QString::fromUtf8(UpdateConfig(home)),
             QStringLiteral("{\n"
                            "    \"a\": {\n"
                            "        \"b\": \"值\",\n"
                            "        \"c\": \"\\\"\\\\\"\n"
                            "    },\n"
                            "    \"currentVersion\": \"2.1.3\",\n"
                            "    \"noRemind\": \"1\",\n"
                            "    \"z\": [\n"
                            "        1,\n"
                            "        2.5,\n"
                            "        null,\n"
                            "        true\n"
                            "    ]\n"
                            "}\n"));
}

void TestWriteBack::endOfALongerTextStaysBehind()
{
    const TestHome home;
    FillFields(home);
    WriteFile(ClientConfigPath(home), R"({"client": {"version": "1.0.0"}})");
    const QByteArray generous = "{\n" + QByteArray(200, ' ') + "\"currentVersion\" : \"1.0.0\"" +
                                QByteArray(50, '\n') + "}\n";
    home.WriteUpdateConfig(generous);

    QCOMPARE(Global::instance.WriteConfigToFile(version), 0);

    const QByteArray text = "{\n    \"currentVersion\": \"2.1.3\"\n}\n";
    QCOMPARE(UpdateConfig(home), text + generous.mid(text.size()));
    QVERIFY(UpdateConfig(home).endsWith("}\n"));

    // So the next start ends with its configuration.
    const LogCapture log;
    QCOMPARE(Global::instance.ReadConfig(), -1);
    QCOMPARE(log.Messages(), QStringList(LogLine::UpdateConfigDamaged(14)));
}

void TestWriteBack::leftoverOfWhiteSpaceDoesNoHarm()
{
    const TestHome home;
    FillFields(home);
    home.WriteUpdateConfig("{\"currentVersion\": \"1.0.0\"}" + QByteArray(100, ' '));
    QCOMPARE(Global::instance.WriteConfigToFile(version), 0);
    QCOMPARE(UpdateConfig(home).size(), 127);
    QJsonParseError error;
    QJsonDocument::fromJson(UpdateConfig(home), &error);
    QCOMPARE(error.error, QJsonParseError::NoError);
}

void TestWriteBack::textThatDoesNotParseIsRebuiltOverTheOldBytes_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("after");
    const QByteArray text = "{\n    \"currentVersion\": \"2.1.3\"\n}\n";
    QTest::newRow("shorter") << QByteArray("{\"appName\": \"x\"") << text;
    QTest::newRow("longer") << QByteArray(60, '?') << text + QByteArray(60 - text.size(), '?');
    QTest::newRow("rubbish after an object") << QByteArray("{\"appName\": \"x\"} }") << text;
}

void TestWriteBack::textThatDoesNotParseIsRebuiltOverTheOldBytes()
{
    QFETCH(QByteArray, before);
    const TestHome home;
    FillFields(home);
    home.WriteUpdateConfig(before);
    const LogCapture log;
    QCOMPARE(Global::instance.WriteConfigToFile(version), 0);
    QTEST(UpdateConfig(home), "after");
    QCOMPARE(log.Messages(), QStringList());
}

void TestWriteBack::versionIsWrittenAsItIs_data()
{
    QTest::addColumn<QString>("offered");
    QTest::newRow("empty") << QString();
    QTest::newRow("quotes") << QStringLiteral("2.1 \"beta\" \\");
    QTest::newRow("Chinese") << QStringLiteral("版本 2");
}

void TestWriteBack::versionIsWrittenAsItIs()
{
    QFETCH(QString, offered);
    const TestHome home;
    FillFields(home);
    Global::instance.latestVersion = offered;
    QCOMPARE(Global::instance.WriteConfigToFile(version), 0);
    const QJsonValue written =
        QJsonDocument::fromJson(UpdateConfig(home)).object().value(QLatin1String("currentVersion"));
    QCOMPARE(written, QJsonValue(offered));
}

void TestWriteBack::writingTwiceGivesTheSameFile()
{
    const TestHome home;
    FillFields(home);
    QCOMPARE(Global::instance.WriteConfigToFile(remid), 0);
    const QByteArray once = UpdateConfig(home);
    QCOMPARE(Global::instance.WriteConfigToFile(remid), 0);
    QCOMPARE(UpdateConfig(home), once);
    // Windows does not remove an open file.
    QVERIFY(QFile::remove(UpdateConfigPath(home)));
}

void TestWriteBack::freshlyWrittenFileNamesNoClient()
{
    const TestHome home;
    FillFields(home);
    QCOMPARE(Global::instance.WriteConfigToFile(version), 0);
    const LogCapture log;
    QCOMPARE(Global::instance.ReadConfig(), -1);
    QCOMPARE(log.Messages(), QStringList(LogLine::NotExists(QString())));
}

void TestWriteBack::fileThatCannotBeOpenedFails_data()
{
    QTest::addColumn<QString>("kind");
    QTest::newRow("remid") << remid;
    QTest::newRow("version") << version;
    QTest::newRow("another word") << QStringLiteral("other");
}

void TestWriteBack::fileThatCannotBeOpenedFails()
{
    QFETCH(QString, kind);
    const TestHome home;
    FillFields(home);
    QVERIFY(QDir(home.ProgramFolder()).mkdir(QStringLiteral("updateconfig.json")));
    const LogCapture log;
    QCOMPARE(Global::instance.WriteConfigToFile(kind), -1);
    QCOMPARE(log.Messages(), QStringList(LogLine::UpdateConfigWriteFailed(5)));
    QVERIFY(QDir(UpdateConfigPath(home)).isEmpty());
}

#ifdef Q_OS_UNIX
void TestWriteBack::fileThatCannotBeMadeFails_posix()
{
    // A dangling link: the file does not exist and cannot be created either.
    const TestHome home;
    FillFields(home);
    QVERIFY(QFile::link(home.Scratch() + QStringLiteral("/missing/file"), UpdateConfigPath(home)));
    const LogCapture log;
    QCOMPARE(Global::instance.WriteConfigToFile(version), -1);
    QCOMPARE(log.Messages(), QStringList(LogLine::UpdateConfigWriteFailed(5)));
}
#endif

#ifdef Q_OS_UNIX
void TestWriteBack::errorOfAFileIsTheOneItHas_posix()
{
    const TestHome home;
    FillFields(home);
    home.WriteUpdateConfig("{}");
    const LogCapture log;
    int updateResult = 0;
    int clientResult = 0;
    {
        const NoFilesLeft noFiles;
        updateResult = Global::instance.WriteConfigToFile(version);
        clientResult = Global::instance.WriteConfigToClientFile();
    }
    QCOMPARE(updateResult, -1);
    QCOMPARE(clientResult, -1);
    QCOMPARE(log.Messages(), QStringList({LogLine::UpdateConfigWriteFailed(4),
                                          LogLine::ClientConfigWriteFailed(4)}));
    QCOMPARE(UpdateConfig(home), QByteArray("{}"));
}
#endif

#ifdef Q_OS_UNIX
void TestWriteBack::failedWriteCountsAsSuccess_posix()
{
    const TestHome home;
    FillFields(home);
    home.WriteUpdateConfig("{}");
    WriteFile(ClientConfigPath(home), "{}");
    const LogCapture log;
    int updateResult = 1;
    int clientResult = 1;
    {
        const FullDisk full;
        updateResult = Global::instance.WriteConfigToFile(version);
        clientResult = Global::instance.WriteConfigToClientFile();
    }
    QCOMPARE(updateResult, 0);
    QCOMPARE(clientResult, 0);
    QCOMPARE(UpdateConfig(home), QByteArray("{}"));
    QCOMPARE(ReadFile(ClientConfigPath(home)), QByteArray("{}"));
    QCOMPARE(log.Messages(), QStringList());
}
#endif

void TestWriteBack::fileOfTheWorkingFolderIsWritten()
{
    const TestHome home;
    FillFields(home);
    home.WriteUpdateConfig("{}");
    QVERIFY(QDir::setCurrent(home.Scratch()));
    QCOMPARE(Global::instance.WriteConfigToFile(version), 0);
    QCOMPARE(UpdateConfig(home), QByteArray("{}"));
    QVERIFY(ReadFile(home.Scratch() + QStringLiteral("/updateconfig.json")).contains("2.1.3"));
}

void TestWriteBack::clientVersionIsReplacedAndTheRestKept()
{
    const TestHome home;
    FillFields(home);
    const QStringList fields = Fields();
    WriteFile(ClientConfigPath(home),
              R"({"window": {"width": 5}, "client": {"version": "1.0.0", "name": "n"}})");
    const LogCapture log;
    QCOMPARE(Global::instance.WriteConfigToClientFile(), 0);
    QCOMPARE(ReadFile(ClientConfigPath(home)), QByteArray("{\n"
                                                          "    \"client\": {\n"
                                                          "        \"name\": \"n\",\n"
                                                          "        \"version\": \"2.1.3\"\n"
                                                          "    },\n"
                                                          "    \"window\": {\n"
                                                          "        \"width\": 5\n"
                                                          "    }\n"
                                                          "}\n"));
    QCOMPARE(Fields(), fields);
    QCOMPARE(log.Messages(), QStringList());
    QVERIFY(!QFile::exists(UpdateConfigPath(home)));
}

void TestWriteBack::clientObjectIsAddedWhenMissing_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::newRow("missing") << QByteArray(R"({"a": 1})");
    QTest::newRow("text") << QByteArray(R"({"a": 1, "client": "1"})");
    QTest::newRow("array") << QByteArray(R"({"a": 1, "client": [1]})");
    QTest::newRow("null") << QByteArray(R"({"a": 1, "client": null})");
}

void TestWriteBack::clientObjectIsAddedWhenMissing()
{
    QFETCH(QByteArray, before);
    const TestHome home;
    FillFields(home);
    WriteFile(ClientConfigPath(home), before);
    QCOMPARE(Global::instance.WriteConfigToClientFile(), 0);
    QCOMPARE(ReadFile(ClientConfigPath(home)), QByteArray("{\n"
                                                          "    \"a\": 1,\n"
                                                          "    \"client\": {\n"
                                                          "        \"version\": \"2.1.3\"\n"
                                                          "    }\n"
                                                          "}\n"));
}

void TestWriteBack::clientConfigIsMadeWhenMissing()
{
    const TestHome home;
    FillFields(home);
    QCOMPARE(Global::instance.WriteConfigToClientFile(), 0);
    QCOMPARE(ReadFile(ClientConfigPath(home)),
             QByteArray("{\n    \"client\": {\n        \"version\": \"2.1.3\"\n    }\n}\n"));
    QVERIFY(QFile::remove(ClientConfigPath(home)));
}

void TestWriteBack::clientConfigIsNotTruncated()
{
    const TestHome home;
    FillFields(home);
    const QByteArray before = QByteArray(100, '#');
    WriteFile(ClientConfigPath(home), before);
    QCOMPARE(Global::instance.WriteConfigToClientFile(), 0);
    const QByteArray text = "{\n    \"client\": {\n        \"version\": \"2.1.3\"\n    }\n}\n";
    QCOMPARE(ReadFile(ClientConfigPath(home)), text + before.mid(text.size()));
}

void TestWriteBack::clientConfigPathIsAPlainPrefix()
{
    const TestHome home;
    FillFields(home);
    Global::instance.appPath = home.ClientFolder();
    QCOMPARE(Global::instance.WriteConfigToClientFile(), 0);
    QVERIFY(QFile::exists(home.ClientFolder() + QStringLiteral("config.json")));
    QVERIFY(!QFile::exists(ClientConfigPath(home)));
}

void TestWriteBack::clientConfigThatCannotBeOpenedFails_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("name");
    QTest::newRow("missing folder") << QStringLiteral("/missing/") << QStringLiteral("config.json");
    QTest::newRow("a folder of that name") << QStringLiteral("/") << QStringLiteral("AutoUpdate");
}

void TestWriteBack::clientConfigThatCannotBeOpenedFails()
{
    QFETCH(QString, folder);
    QFETCH(QString, name);
    const TestHome home;
    FillFields(home);
    Global::instance.appPath = home.ClientFolder() + folder;
    Global::instance.appConfigFile = name;
    const LogCapture log;
    QCOMPARE(Global::instance.WriteConfigToClientFile(), -1);
    QCOMPARE(log.Messages(), QStringList(LogLine::ClientConfigWriteFailed(5)));
    QVERIFY(!QFile::exists(home.Installed(QStringLiteral("missing"))));
}

QTEST_GUILESS_MAIN(TestWriteBack)
#include "tst_writeback.moc"
