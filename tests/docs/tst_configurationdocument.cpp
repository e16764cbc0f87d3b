// SPDX-License-Identifier: MIT
#include "config/arguments.h"
#include "config/global.h"
#include "config/paths.h"
#include "config/servicecontract.h"
#include "tests/docs/document.h"
#include "tests/support/testhome.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QRegularExpression>
#include <QTest>
#include <QUrl>

namespace
{

const QString kConfiguration = QStringLiteral("docs/configuration.md");
const QString kClient = QStringLiteral("docs/client.md");
const QString kProtocol = QStringLiteral("docs/protocol.md");
const QString kJson = QStringLiteral("json");

// The fenced examples of docs/configuration.md.
enum Example { ToStartFrom, AfterAnUpdate, OfTheClient, ExampleCount };

QByteArray ConfigurationExample(Example example)
{
    const QVector<QByteArray> examples = Document(kConfiguration).Fenced(kJson);
    return examples.size() == ExampleCount ? examples.at(example) : QByteArray();
}

QJsonObject Object(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
}

QStringList Sorted(QStringList list)
{
    list.sort();
    return list;
}

/// What the program holds for each key of updateconfig.json, as text.
QMap<QString, QString> Values()
{
    const Global &global = Global::instance;
    return {{QStringLiteral("appName"), global.appName},
            {QStringLiteral("appConfigFile"), global.appConfigFile},
            {QStringLiteral("appPath"), global.appPath},
            {QStringLiteral("updateCheckUrl"), global.updateCheckUrl},
            {QStringLiteral("updatePackageUrl"), global.updatePackageUrl},
            {QStringLiteral("noRemindVersion"), global.noRemindVersion},
            {QStringLiteral("noRemind"), QString::number(global.noRemind)}};
}

/// The values after the program has read @p config, whatever comes of it.
QMap<QString, QString> ValuesOf(const TestHome &home, const QJsonObject &config)
{
    ResetGlobal();
    home.WriteUpdateConfig(QJsonDocument(config).toJson());
    Global::instance.ReadConfig();
    return Values();
}

/// Puts the client's configuration of @p json where @p config says, in the home; returns @p config.
QJsonObject WithClient(const TestHome &home, QJsonObject config, const QByteArray &json)
{
    const QString folder = home.ClientFolder() + QLatin1Char('/');
    config.insert(QStringLiteral("appPath"), folder);
    WriteFile(folder + config.value(QStringLiteral("appConfigFile")).toString(), json);
    return config;
}

/// Every key in @p object and in what it holds.
QStringList Keys(const QJsonObject &object)
{
    QStringList keys;
    for (auto entry = object.begin(); entry != object.end(); ++entry) {
        keys.append(entry.key());
        keys.append(Keys(entry.value().toObject()));
    }
    return keys;
}

} // namespace

/// The documents of the configuration, the command line and the protocol, checked against the
/// program.
class TestConfigurationDocument : public QObject
{
    Q_OBJECT

private slots:
    void tableHasTheKeysOfTheSources();
    void exampleIsLoaded();
    void exampleIsTheOneThatShips();
    void keyHasTheTypeAndDefaultOfTheTable_data();
    void keyHasTheTypeAndDefaultOfTheTable();
    void programWritesTheSecondExample();
    void clientsExampleTellsTheVersion_data();
    void clientsExampleTellsTheVersion();
    void languageIsAsInTheTable_data();
    void languageIsAsInTheTable();
    void switchesAreThoseOfTheProgram();
    void filesAreThoseOfTheProgram();
    void clientGetsTheArgumentsOfTheTable_data();
    void clientGetsTheArgumentsOfTheTable();
    void answerHasTheKeysOfTheTable();
    void answerIsRead();
    void answerWithoutAnUpdateIsRead();
    void packagesComeFromTheHostsOfTheTable();
};

void TestConfigurationDocument::tableHasTheKeysOfTheSources()
{
    const QString source =
        QString::fromUtf8(ReadFile(ProjectPath(QStringLiteral("config/configcontract.h"))));
    const int begin = source.indexOf(QStringLiteral("namespace Key\n"));
    const int end = source.indexOf(QStringLiteral("} // namespace ClientKey"));
    const QRegularExpression key(QStringLiteral("const QLatin1String \\w+\\(\"(\\w+)\""));
    QStringList read;
    auto matches = key.globalMatch(source.mid(begin, end - begin));
    while (matches.hasNext())
        read.append(matches.next().captured(1));

    QStringList documented;
    const QVector<QStringList> rows = Document(kConfiguration).Rows(QStringLiteral("Key"));
    for (const QStringList &row : rows)
        documented.append(Quoted(row.first()));
    QCOMPARE(Sorted(documented), Sorted(read));
}

void TestConfigurationDocument::exampleIsLoaded()
{
    const TestHome home;
    const QJsonObject config = WithClient(home, Object(ConfigurationExample(ToStartFrom)),
                                          ConfigurationExample(OfTheClient));
    home.WriteUpdateConfig(QJsonDocument(config).toJson());
    QCOMPARE(Global::instance.ReadConfig(), 0);
    const QMap<QString, QString> values = Values();
    for (auto value = values.begin(); value != values.end(); ++value)
        QCOMPARE(value.value(), config.value(value.key()).toVariant().toString());
    QCOMPARE(Global::instance.currentVersion, QStringLiteral("1.0.0"));
}

void TestConfigurationDocument::exampleIsTheOneThatShips()
{
    QCOMPARE(ConfigurationExample(ToStartFrom),
             ReadFile(ProjectPath(QStringLiteral("release/windows/updateconfig.json"))));
}

void TestConfigurationDocument::keyHasTheTypeAndDefaultOfTheTable_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("whenMissing");
    const QVector<QStringList> rows = Document(kConfiguration).Rows(QStringLiteral("Key"));
    const QJsonObject example = Object(ConfigurationExample(AfterAnUpdate));
    for (const QStringList &row : rows) {
        const QString key = Quoted(row.first());
        // The others are the client's.
        if (example.contains(key))
            QTest::newRow(qPrintable(key)) << key << row.at(1) << row.at(2);
    }
}

void TestConfigurationDocument::keyHasTheTypeAndDefaultOfTheTable()
{
    QFETCH(QString, key);
    QFETCH(QString, type);
    QFETCH(QString, whenMissing);
    const TestHome home;
    QJsonObject config = Object(ConfigurationExample(AfterAnUpdate));
    const QMap<QString, QString> whole = ValuesOf(home, config);

    QMap<QString, QString> expected = whole;
    if (whenMissing != QLatin1String("not read")) {
        expected.insert(key, whenMissing == QLatin1String("empty") ? QString() : whenMissing);
        QVERIFY(expected != whole);
    }
    config.remove(key);
    QCOMPARE(ValuesOf(home, config), expected);
    config.insert(key, type == QLatin1String("string") ? QJsonValue(1)
                                                       : QJsonValue(QStringLiteral("1")));
    QCOMPARE(ValuesOf(home, config), expected);
}

void TestConfigurationDocument::programWritesTheSecondExample()
{
    const TestHome home;
    home.WriteUpdateConfig(ConfigurationExample(ToStartFrom));
    Global::instance.latestVersion = QStringLiteral("2.1.3");
    QCOMPARE(Global::instance.WriteConfigToFile(QStringLiteral("version")), 0);
    Global::instance.latestVersion = QStringLiteral("2.2.0");
    QCOMPARE(Global::instance.WriteConfigToFile(QStringLiteral("remid")), 0);
    QCOMPARE(ReadFile(home.ProgramFolder() + QStringLiteral("/updateconfig.json")),
             ConfigurationExample(AfterAnUpdate));
}

void TestConfigurationDocument::clientsExampleTellsTheVersion_data()
{
    QTest::addColumn<QByteArray>("example");
    QTest::addColumn<QString>("version");
    const QVector<QByteArray> examples = Document(kClient).Fenced(kJson);
    QCOMPARE(examples.size(), 2);
    QTest::newRow("before the update") << examples.at(0) << QStringLiteral("1.0.0");
    QTest::newRow("of the package") << examples.at(1) << QStringLiteral("2.1.3");
}

void TestConfigurationDocument::clientsExampleTellsTheVersion()
{
    QFETCH(QByteArray, example);
    const TestHome home;
    const QJsonObject config = WithClient(home, Object(ConfigurationExample(ToStartFrom)), example);
    home.WriteUpdateConfig(QJsonDocument(config).toJson());
    QCOMPARE(Global::instance.ReadConfig(), 0);
    QTEST(Global::instance.currentVersion, "version");
}

void TestConfigurationDocument::languageIsAsInTheTable_data()
{
    QTest::addColumn<QString>("content");
    QTest::addColumn<QString>("dialogs");
    QTest::addColumn<QString>("notes");
    const QVector<QStringList> rows = Document(kConfiguration).Rows(QStringLiteral("Content"));
    for (const QStringList &row : rows) {
        const QString content = Quoted(row.first());
        if (!content.isNull())
            QTest::newRow(qPrintable(content)) << content << row.at(1) << row.at(2);
    }
}

void TestConfigurationDocument::languageIsAsInTheTable()
{
    QFETCH(QString, content);
    const TestHome home;
    const QJsonObject config = WithClient(home, Object(ConfigurationExample(ToStartFrom)),
                                          ConfigurationExample(OfTheClient));
    home.WriteUpdateConfig(QJsonDocument(config).toJson());
    WriteFile(home.ClientDataFolder() + QStringLiteral("/language.txt"), content.toUtf8() + "\n");
    Global &global = Global::instance;
    QCOMPARE(global.ReadConfig(), 0);
    QCOMPARE(global.ParseServiceReply(
                 R"({"code":"000000","biz":{"latestVersionInfo":"Chinese&English"}})"),
             0);
    QTEST(global.IsEnglish() ? QStringLiteral("English") : QStringLiteral("Chinese"), "dialogs");
    QTEST(global.latestVersionInfo, "notes");
}

void TestConfigurationDocument::switchesAreThoseOfTheProgram()
{
    QStringList switches;
    const QVector<QStringList> rows = Document(kConfiguration).Rows(QStringLiteral("Argument"));
    for (const QStringList &row : rows) {
        if (row.first().startsWith(QLatin1String("`-")))
            switches.append(Quoted(row.first()));
    }
    QCOMPARE(Sorted(switches), Sorted({Switch::NoRemind, Switch::Immediately}));
}

void TestConfigurationDocument::filesAreThoseOfTheProgram()
{
    const TestHome home;
    QStringList files = {Paths::LogFile(),
                         Paths::DownloadFolder(QStringLiteral("CLIENT.exe")) + QLatin1Char('/'),
                         Paths::LanguageFile(),
                         Paths::NotesFile(),
                         Paths::NotesMarkerFile(),
                         Paths::ScriptFile(),
                         Paths::UpdateConfigFile()};
    files.replaceInStrings(home.Home() + QLatin1Char('/'), QString());

    QStringList documented;
    const QVector<QStringList> rows = Document(kConfiguration).Rows(QStringLiteral("File"));
    for (const QStringList &row : rows)
        documented.append(Quoted(row.first()));
    QCOMPARE(Sorted(documented), Sorted(files));
}

void TestConfigurationDocument::clientGetsTheArgumentsOfTheTable_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("handedOn");
    const QVector<QStringList> rows =
        Document(kClient).Rows(QStringLiteral("The updater was started with"));
    for (const QStringList &row : rows) {
        const bool nothing = row.first() == QLatin1String("nothing");
        const QString arguments = Quoted(row.first());
        if (nothing || !arguments.isNull())
            QTest::newRow(qPrintable(row.first()))
                << (nothing ? QStringList() : arguments.split(QLatin1Char(' ')))
                << Quoted(row.at(1)).split(QLatin1Char(' '));
    }
}

void TestConfigurationDocument::clientGetsTheArgumentsOfTheTable()
{
    QFETCH(QStringList, arguments);
    const TestHome home;
    Global &global = Global::instance;
    global.appPath = home.Scratch() + QLatin1Char('/');
    global.appName = TestHome::UniqueImageName();
    global.cmdLineArgs = arguments;
    QCOMPARE(global.LaunchClient(), 0);
    QTEST(global.cmdLineArgs, "handedOn");
}

void TestConfigurationDocument::answerHasTheKeysOfTheTable()
{
    QStringList documented;
    const QVector<QStringList> rows = Document(kProtocol).Rows(QStringLiteral("Key"));
    for (const QStringList &row : rows)
        documented.append(Quoted(row.first()));
    QCOMPARE(Sorted(documented), Sorted(Keys(Object(Document(kProtocol).Fenced(kJson).value(0)))));
}

void TestConfigurationDocument::answerIsRead()
{
    const TestHome home;
    const QByteArray answer = Document(kProtocol).Fenced(kJson).value(0);
    const QJsonObject biz = Object(answer).value(QStringLiteral("biz")).toObject();
    Global &global = Global::instance;
    global.language = QStringLiteral("en");
    QCOMPARE(global.ParseServiceReply(answer), 0);
    QCOMPARE(global.id, biz.value(QStringLiteral("id")).toString());
    QCOMPARE(global.update, QStringLiteral("1"));
    QCOMPARE(global.latestVersion, QStringLiteral("2.1.3"));
    QVERIFY(global.latestVersionUrl.endsWith(QLatin1Char('/') + global.id));
    QCOMPARE(global.latestVersionInfo, QStringLiteral("English notes"));
    QCOMPARE(global.md5, biz.value(QStringLiteral("md5")).toString());
    QCOMPARE(global.packageSize, qint64(1572864));
    QCOMPARE(global.updateType, qint32(ServiceContract::ZipPackage));
}

void TestConfigurationDocument::answerWithoutAnUpdateIsRead()
{
    const TestHome home;
    QCOMPARE(Global::instance.ParseServiceReply(Document(kProtocol).Fenced(kJson).value(1)), 0);
    QCOMPARE(Global::instance.update, QStringLiteral("0"));
}

void TestConfigurationDocument::packagesComeFromTheHostsOfTheTable()
{
    const QVector<QStringList> rows =
        Document(QStringLiteral("docs/security.md")).Rows(QStringLiteral("`updatePackageUrl`"));
    QVERIFY(!rows.isEmpty());
    for (const QStringList &row : rows) {
        const QString host = Quoted(row.at(2));
        if (!host.isNull())
            QCOMPARE(QUrl(Quoted(row.at(0)) + Quoted(row.at(1)), QUrl::TolerantMode).host(), host);
    }
}

QTEST_GUILESS_MAIN(TestConfigurationDocument)
#include "tst_configurationdocument.moc"
