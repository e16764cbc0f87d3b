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
#include <QLocale>
#include <QTest>

namespace
{

const char *const clientConfig = R"({"client": {"version": "1.0.0"}})";

/// An updateconfig.json that leads to the client's configuration in @p home.
QJsonObject SoundConfig(const TestHome &home)
{
    return {{QStringLiteral("appName"), QStringLiteral("Client.exe")},
            {QStringLiteral("appConfigFile"), QStringLiteral("config.json")},
            {QStringLiteral("appPath"), home.ClientFolder() + QLatin1Char('/')},
            {QStringLiteral("updateCheckUrl"), QStringLiteral("https://updates.example/check")},
            {QStringLiteral("updatePackageUrl"), QStringLiteral("https://updates.example/pkg/")},
            {QStringLiteral("noRemindVersion"), QStringLiteral("1.9.0")},
            {QStringLiteral("noRemind"), 1}};
}

void WriteConfig(const TestHome &home, const QJsonObject &config)
{
    home.WriteUpdateConfig(QJsonDocument(config).toJson());
}

QString ClientConfigPath(const TestHome &home)
{
    return home.Installed(QStringLiteral("config.json"));
}

QString LanguagePath(const TestHome &home)
{
    return home.ClientDataFolder() + QStringLiteral("/language.txt");
}

/// Writes valid configurations, with English as the language.
void WriteSoundFiles(const TestHome &home)
{
    WriteConfig(home, SoundConfig(home));
    WriteFile(ClientConfigPath(home), clientConfig);
    WriteFile(LanguagePath(home), "en");
}

/// Gives the fields that ReadConfig() writes values that are in no file.
void FillFields()
{
    Global &global = Global::instance;
    for (QString *text : {&global.appName, &global.appConfigFile, &global.appPath,
                          &global.updateCheckUrl, &global.updatePackageUrl, &global.currentVersion,
                          &global.noRemindVersion, &global.scriptPath, &global.language})
        *text = QStringLiteral("before");
    global.noRemind = 7;
}

void VerifyUpdateConfigUntouched()
{
    const Global &global = Global::instance;
    for (const QString &text :
         {global.appName, global.appConfigFile, global.appPath, global.updateCheckUrl,
          global.updatePackageUrl, global.noRemindVersion})
        QCOMPARE(text, QStringLiteral("before"));
    QCOMPARE(global.noRemind, 7);
}

void VerifyUpdateConfigStored(const TestHome &home)
{
    const Global &global = Global::instance;
    QCOMPARE(global.appName, QStringLiteral("Client.exe"));
    QCOMPARE(global.appConfigFile, QStringLiteral("config.json"));
    QCOMPARE(global.appPath, home.ClientFolder() + QLatin1Char('/'));
    QCOMPARE(global.updateCheckUrl, QStringLiteral("https://updates.example/check"));
    QCOMPARE(global.updatePackageUrl, QStringLiteral("https://updates.example/pkg/"));
    QCOMPARE(global.noRemindVersion, QStringLiteral("1.9.0"));
    QCOMPARE(global.noRemind, 1);
}

/// Checks the fields that stay when ReadConfig() fails before it reads the client's version and the
/// language.
void VerifyRestUntouched()
{
    QCOMPARE(Global::instance.currentVersion, QStringLiteral("before"));
    QCOMPARE(Global::instance.scriptPath, QStringLiteral("before"));
    QCOMPARE(Global::instance.language, QStringLiteral("before"));
}

/// Texts that are not JSON, with the error code of the parser.
void AddBrokenJson()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<int>("code");
    QTest::newRow("empty file") << QByteArray() << 5;
    QTest::newRow("no JSON at all") << QByteArray("appName=Client.exe") << 5;
    QTest::newRow("unterminated object") << QByteArray("{\"appName\": {}") << 1;
    QTest::newRow("no colon") << QByteArray("{\"appName\" \"x\"}") << 2;
    QTest::newRow("unterminated array") << QByteArray("[{}") << 3;
    QTest::newRow("no comma") << QByteArray("[1 2]") << 4;
    QTest::newRow("number cut off") << QByteArray("{\"noRemind\": 1") << 6;
    QTest::newRow("back-slashes not doubled") << QByteArray("{\"appPath\": \"C:\\uxyz\"}") << 8;
    QTest::newRow("not UTF-8") << QByteArray("{\"appName\": \"\xff\"}") << 9;
    QTest::newRow("unterminated string") << QByteArray("{\"appName\": \"x}") << 10;
    QTest::newRow("comma at the end") << QByteArray("{\"appName\": \"x\",}") << 11;
    QTest::newRow("more text after the object") << QByteArray("{\"appName\": \"x\"}\"}") << 14;
}

/// Sets the locale that QLocale() returns while it lives.
class SystemLocale
{
public:
    explicit SystemLocale(const QLocale &locale) { QLocale::setDefault(locale); }
    ~SystemLocale() { QLocale::setDefault(m_old); }
    Q_DISABLE_COPY(SystemLocale)

private:
    QLocale m_old;
};

} // namespace

class TestReadConfig : public QObject
{
    Q_OBJECT

private slots:
    void bothConfigurationsAndTheLanguageAreLoaded();
    void summaryIsLoggedWithQuotesAndBlanks();
    void keysMissingOrOfAnotherTypeAreEmpty_data();
    void keysMissingOrOfAnotherTypeAreEmpty();
    void noRemindIsTakenFromWholeNumbersOnly_data();
    void noRemindIsTakenFromWholeNumbersOnly();
    void otherKeysAreIgnored();
    void textsAreReadAsUtf8();
    void missingUpdateConfigFails();
    void updateConfigUnderTheHomeFolderIsNotFound();
    void updateConfigIsReadFromTheWorkingFolder();
    void updateConfigThatCannotBeOpenedFails();
    void brokenUpdateConfigFails_data();
    void brokenUpdateConfigFails();
    void updateConfigThatIsNoObjectYieldsEmptyValues();
    void missingClientConfigFailsAfterTheValuesAreStored();
    void keyBehindAByteOrderMarkIsAnotherKey();
    void clientFolderWithoutSeparatorIsNoFolder();
    void clientConfigThatCannotBeOpenedFails();
#ifdef Q_OS_UNIX
    void errorOfAFileIsTheOneItHas_posix();
#endif
    void brokenClientConfigFails_data();
    void brokenClientConfigFails();
    void clientConfigWithoutVersionGivesAnEmptyOne_data();
    void clientConfigWithoutVersionGivesAnEmptyOne();
    void languageIsTheTrimmedFile_data();
    void languageIsTheTrimmedFile();
    void languageThatCannotBeOpenedFallsBackToTheSystem();
    void missingLanguageFallsBackToTheSystem_data();
    void missingLanguageFallsBackToTheSystem();
    void scriptLiesUnderTheHomeFolderWhateverTheFilesSay();
    void filesAreClosedAndUnchanged();
    void secondLoadReplacesTheFirst();
};

void TestReadConfig::bothConfigurationsAndTheLanguageAreLoaded()
{
    const TestHome home;
    WriteSoundFiles(home);
    FillFields();

    QCOMPARE(Global::instance.ReadConfig(), 0);

    VerifyUpdateConfigStored(home);
    QCOMPARE(Global::instance.currentVersion, QStringLiteral("1.0.0"));
    QCOMPARE(Global::instance.language, QStringLiteral("en"));
    QCOMPARE(Global::instance.scriptPath, home.Home() + QStringLiteral("/AutoUpdate/update.scpt"));
}

void TestReadConfig::summaryIsLoggedWithQuotesAndBlanks()
{
    const TestHome home;
    WriteSoundFiles(home);
    QJsonObject config = SoundConfig(home);
    config.insert(QStringLiteral("updatePackageUrl"), QString());
    config.insert(QStringLiteral("noRemind"), 0);
    WriteConfig(home, config);

    const LogCapture log;
    QCOMPARE(Global::instance.ReadConfig(), 0);
    QCOMPARE(log.Messages(), QStringList(LogLine::Configuration(
                                 QStringLiteral("1.0.0"),
                                 QStringLiteral("https://updates.example/check"), QString(), 0)));
}

void TestReadConfig::keysMissingOrOfAnotherTypeAreEmpty_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QJsonValue>("value");
    for (const char *key : {"updateCheckUrl", "updatePackageUrl", "noRemindVersion", "appName",
                            "appPath", "appConfigFile"}) {
        const auto row = [key](const char *what) -> QTestData & {
            return QTest::addRow("%s: %s", key, what) << QString::fromLatin1(key);
        };
        row("missing") << QJsonValue(QJsonValue::Undefined);
        row("null") << QJsonValue(QJsonValue::Null);
        row("number") << QJsonValue(1);
        row("bool") << QJsonValue(true);
        row("object") << QJsonValue(QJsonObject());
    }
}

void TestReadConfig::keysMissingOrOfAnotherTypeAreEmpty()
{
    QFETCH(QString, key);
    QFETCH(QJsonValue, value);
    const TestHome home;
    WriteSoundFiles(home);
    QJsonObject config = SoundConfig(home);
    config.insert(key, value);
    WriteConfig(home, config);
    FillFields();

    // Without these two the client's configuration is not found.
    const bool findsClient =
        key != QLatin1String("appPath") && key != QLatin1String("appConfigFile");
    QCOMPARE(Global::instance.ReadConfig(), findsClient ? 0 : -1);

    const Global &global = Global::instance;
    const QHash<QString, QString> fields = {
        {QStringLiteral("updateCheckUrl"), global.updateCheckUrl},
        {QStringLiteral("updatePackageUrl"), global.updatePackageUrl},
        {QStringLiteral("noRemindVersion"), global.noRemindVersion},
        {QStringLiteral("appName"), global.appName},
        {QStringLiteral("appPath"), global.appPath},
        {QStringLiteral("appConfigFile"), global.appConfigFile}};
    for (auto field = fields.cbegin(); field != fields.cend(); ++field)
        QCOMPARE(field.value().isEmpty(), field.key() == key);
}

void TestReadConfig::noRemindIsTakenFromWholeNumbersOnly_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<qint32>("noRemind");
    QTest::newRow("1") << QByteArray("1") << 1;
    QTest::newRow("0") << QByteArray("0") << 0;
    QTest::newRow("negative") << QByteArray("-5") << -5;
    QTest::newRow("whole with a fraction part") << QByteArray("1.0") << 1;
    QTest::newRow("text") << QByteArray("\"1\"") << 0;
    QTest::newRow("bool") << QByteArray("true") << 0;
    QTest::newRow("null") << QByteArray("null") << 0;
    QTest::newRow("fraction") << QByteArray("1.5") << 0;
    QTest::newRow("largest") << QByteArray("2147483647") << 2147483647;
    QTest::newRow("too large") << QByteArray("2147483648") << 0;
}

void TestReadConfig::noRemindIsTakenFromWholeNumbersOnly()
{
    QFETCH(QByteArray, json);
    const TestHome home;
    WriteSoundFiles(home);
    QJsonObject config = SoundConfig(home);
    config.remove(QStringLiteral("noRemind"));
    const QByteArray rest = QJsonDocument(config).toJson().trimmed().mid(1);
    home.WriteUpdateConfig("{\"noRemind\": " + json + "," + rest);
    FillFields();

    QCOMPARE(Global::instance.ReadConfig(), 0);
    QTEST(Global::instance.noRemind, "noRemind");
}

void TestReadConfig::otherKeysAreIgnored()
{
    const TestHome home;
    WriteSoundFiles(home);
    QJsonObject config = SoundConfig(home);
    config.insert(QStringLiteral("currentVersion"), QStringLiteral("0.9.0"));
    config.insert(QStringLiteral("language"), QStringLiteral("zh"));
    config.insert(QStringLiteral("scriptPath"), QStringLiteral("C:/other"));
    config.insert(QStringLiteral("AppName"), QStringLiteral("Other.exe"));
    WriteConfig(home, config);

    QCOMPARE(Global::instance.ReadConfig(), 0);
    VerifyUpdateConfigStored(home);
    QCOMPARE(Global::instance.currentVersion, QStringLiteral("1.0.0"));
    QCOMPARE(Global::instance.language, QStringLiteral("en"));
}

void TestReadConfig::textsAreReadAsUtf8()
{
    const TestHome home;
    const QString folder = home.Installed(QStringLiteral("客户端/"));
    WriteFile(folder + QStringLiteral("配置.json"), u8R"({"client": {"version": "版本 1"}})");
    QJsonObject config = SoundConfig(home);
    config.insert(QStringLiteral("appPath"), folder);
    config.insert(QStringLiteral("appConfigFile"), QStringLiteral("配置.json"));
    WriteConfig(home, config);

    QCOMPARE(Global::instance.ReadConfig(), 0);
    QCOMPARE(Global::instance.appPath, folder);
    QCOMPARE(Global::instance.currentVersion, QStringLiteral("版本 1"));
}

void TestReadConfig::missingUpdateConfigFails()
{
    const TestHome home;
    FillFields();
    const LogCapture log;
    QCOMPARE(Global::instance.ReadConfig(), -1);
    QCOMPARE(log.Messages(), QStringList(LogLine::UpdateConfigOpenFailed(0)));
    VerifyUpdateConfigUntouched();
    VerifyRestUntouched();
}

void TestReadConfig::updateConfigUnderTheHomeFolderIsNotFound()
{
    const TestHome home;
    WriteFile(home.Home() + QStringLiteral("/AutoUpdate/updateconfig.json"),
              QJsonDocument(SoundConfig(home)).toJson());
    WriteFile(ClientConfigPath(home), clientConfig);
    const LogCapture log;
    QCOMPARE(Global::instance.ReadConfig(), -1);
    QCOMPARE(log.Messages(), QStringList(LogLine::UpdateConfigOpenFailed(0)));
}

void TestReadConfig::updateConfigIsReadFromTheWorkingFolder()
{
    const TestHome home;
    WriteSoundFiles(home);
    QVERIFY(QDir::setCurrent(home.Scratch()));
    QCOMPARE(Global::instance.ReadConfig(), -1);
    QVERIFY(QDir::setCurrent(home.ProgramFolder()));
    QCOMPARE(Global::instance.ReadConfig(), 0);
}

void TestReadConfig::updateConfigThatCannotBeOpenedFails()
{
    const TestHome home;
    QVERIFY(QDir(home.ProgramFolder()).mkdir(QStringLiteral("updateconfig.json")));
    FillFields();
    const LogCapture log;
    QCOMPARE(Global::instance.ReadConfig(), -1);
    QCOMPARE(log.Messages(), QStringList(LogLine::UpdateConfigOpenFailed(5)));
    VerifyUpdateConfigUntouched();
    VerifyRestUntouched();
}

void TestReadConfig::brokenUpdateConfigFails_data()
{
    AddBrokenJson();
}

void TestReadConfig::brokenUpdateConfigFails()
{
    QFETCH(QByteArray, content);
    QFETCH(int, code);
    const TestHome home;
    WriteSoundFiles(home);
    home.WriteUpdateConfig(content);
    FillFields();

    const LogCapture log;
    QCOMPARE(Global::instance.ReadConfig(), -1);
    QCOMPARE(log.Messages(), QStringList(LogLine::UpdateConfigDamaged(code)));
    VerifyUpdateConfigUntouched();
    VerifyRestUntouched();
}

void TestReadConfig::updateConfigThatIsNoObjectYieldsEmptyValues()
{
    const TestHome home;
    home.WriteUpdateConfig("[\"appName\", 1]");
    FillFields();
    const LogCapture log;
    QCOMPARE(Global::instance.ReadConfig(), -1);
    QCOMPARE(log.Messages(), QStringList(LogLine::NotExists(QString())));
    for (const QString &text :
         {Global::instance.appName, Global::instance.appConfigFile, Global::instance.appPath,
          Global::instance.updateCheckUrl, Global::instance.updatePackageUrl,
          Global::instance.noRemindVersion})
        QCOMPARE(text, QString());
    QCOMPARE(Global::instance.noRemind, 0);
    VerifyRestUntouched();
}

void TestReadConfig::missingClientConfigFailsAfterTheValuesAreStored()
{
    const TestHome home;
    WriteConfig(home, SoundConfig(home));
    FillFields();
    const LogCapture log;
    QCOMPARE(Global::instance.ReadConfig(), -1);
    QCOMPARE(log.Messages(), QStringList(LogLine::NotExists(ClientConfigPath(home))));
    VerifyUpdateConfigStored(home);
    VerifyRestUntouched();
}

void TestReadConfig::keyBehindAByteOrderMarkIsAnotherKey()
{
    const TestHome home;
    WriteSoundFiles(home);
    QByteArray config = QJsonDocument(SoundConfig(home)).toJson();
    config.chop(config.size() - config.lastIndexOf('}'));
    home.WriteUpdateConfig(config + ", \"\xef\xbb\xbfnoRemindVersion\": \"of another key\"}");
    FillFields();

    QCOMPARE(Global::instance.ReadConfig(), 0);

    VerifyUpdateConfigStored(home);
}

void TestReadConfig::clientFolderWithoutSeparatorIsNoFolder()
{
    const TestHome home;
    WriteSoundFiles(home);
    QJsonObject config = SoundConfig(home);
    config.insert(QStringLiteral("appPath"), home.ClientFolder());
    WriteConfig(home, config);

    const QString joined = home.ClientFolder() + QStringLiteral("config.json");
    {
        const LogCapture log;
        QCOMPARE(Global::instance.ReadConfig(), -1);
        QCOMPARE(log.Messages(), QStringList(LogLine::NotExists(joined)));
    }
    WriteFile(joined, R"({"client": {"version": "7.7.7"}})");
    QCOMPARE(Global::instance.ReadConfig(), 0);
    QCOMPARE(Global::instance.currentVersion, QStringLiteral("7.7.7"));
}

void TestReadConfig::clientConfigThatCannotBeOpenedFails()
{
    const TestHome home;
    WriteConfig(home, SoundConfig(home));
    QVERIFY(QDir().mkpath(ClientConfigPath(home)));
    FillFields();
    const LogCapture log;
    QCOMPARE(Global::instance.ReadConfig(), -1);
    QCOMPARE(log.Messages(), QStringList(LogLine::OpenFailed(ClientConfigPath(home))));
    VerifyUpdateConfigStored(home);
    VerifyRestUntouched();
}

#ifdef Q_OS_UNIX
void TestReadConfig::errorOfAFileIsTheOneItHas_posix()
{
    const TestHome home;
    WriteSoundFiles(home);
    const LogCapture log;
    int result = 0;
    {
        const NoFilesLeft noFiles;
        result = Global::instance.ReadConfig();
    }
    QCOMPARE(result, -1);
    QCOMPARE(log.Messages(), QStringList(LogLine::UpdateConfigOpenFailed(4)));
}
#endif

void TestReadConfig::brokenClientConfigFails_data()
{
    AddBrokenJson();
}

void TestReadConfig::brokenClientConfigFails()
{
    QFETCH(QByteArray, content);
    QFETCH(int, code);
    const TestHome home;
    WriteSoundFiles(home);
    WriteFile(ClientConfigPath(home), content);
    FillFields();

    const LogCapture log;
    QCOMPARE(Global::instance.ReadConfig(), -1);
    QCOMPARE(log.Messages(), QStringList(LogLine::ClientConfigDamaged(code)));
    VerifyUpdateConfigStored(home);
    VerifyRestUntouched();
}

void TestReadConfig::clientConfigWithoutVersionGivesAnEmptyOne_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("empty object") << QByteArray("{}");
    QTest::newRow("no client") << QByteArray(R"({"version": "1.0.0"})");
    QTest::newRow("client is a text") << QByteArray(R"({"client": "1.0.0"})");
    QTest::newRow("client is an array") << QByteArray(R"({"client": [{"version": "1.0.0"}]})");
    QTest::newRow("no version") << QByteArray(R"({"client": {"name": "x"}})");
    QTest::newRow("version is a number") << QByteArray(R"({"client": {"version": 1}})");
    QTest::newRow("version is an object") << QByteArray(R"({"client": {"version": {}}})");
    QTest::newRow("other case") << QByteArray(R"({"Client": {"version": "1.0.0"}})");
    QTest::newRow("no object") << QByteArray(R"(["client", "version"])");
}

void TestReadConfig::clientConfigWithoutVersionGivesAnEmptyOne()
{
    QFETCH(QByteArray, content);
    const TestHome home;
    WriteSoundFiles(home);
    WriteFile(ClientConfigPath(home), content);
    FillFields();

    const LogCapture log;
    QCOMPARE(Global::instance.ReadConfig(), 0);
    QCOMPARE(Global::instance.currentVersion, QString());
    QCOMPARE(log.Messages(), QStringList(LogLine::Configuration(
                                 QString(), QStringLiteral("https://updates.example/check"),
                                 QStringLiteral("https://updates.example/pkg/"), 1)));
}

void TestReadConfig::languageIsTheTrimmedFile_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("language");
    QTest::addColumn<bool>("english");
    const auto row = [](const char *name, const QByteArray &content, const QString &language) {
        QTest::newRow(name) << content << language << (language == QLatin1String("en"));
    };
    row("en", "en", QStringLiteral("en"));
    row("line feed", "en\n", QStringLiteral("en"));
    row("CR LF", "en\r\n", QStringLiteral("en"));
    row("blanks around", " \t\r\n en \v\f\n", QStringLiteral("en"));
    row("zh", "zh\r\n", QStringLiteral("zh"));
    row("EN", "EN", QStringLiteral("EN"));
    row("en-US", "en-US", QStringLiteral("en-US"));
    row("empty", "", QString());
    row("blank", " \r\n\t ", QString());
    row("blank inside", "en us", QStringLiteral("en us"));
    row("two lines", "en\nzh", QStringLiteral("en\nzh"));
    row("zero byte after it", QByteArray("en\0zh", 5), QStringLiteral("en"));
    row("zero byte first", QByteArray("\0en", 3), QString());
    row("trimmed before the zero byte counts", QByteArray("en \0", 4), QStringLiteral("en "));
    row("UTF-8", u8"中文", QStringLiteral("中文"));
}

void TestReadConfig::languageIsTheTrimmedFile()
{
    QFETCH(QByteArray, content);
    const TestHome home;
    WriteSoundFiles(home);
    WriteFile(LanguagePath(home), content);
    // It must not matter when there is a file.
    const SystemLocale locale(QLocale(QLocale::French, QLocale::France));
    FillFields();

    const LogCapture log;
    QCOMPARE(Global::instance.ReadConfig(), 0);
    QTEST(Global::instance.language, "language");
    QTEST(Global::instance.IsEnglish(), "english");
    QCOMPARE(log.Messages().size(), 1);
}

void TestReadConfig::languageThatCannotBeOpenedFallsBackToTheSystem()
{
    const TestHome home;
    WriteConfig(home, SoundConfig(home));
    WriteFile(ClientConfigPath(home), clientConfig);
    QVERIFY(QDir().mkpath(LanguagePath(home)));
    const SystemLocale locale(QLocale(QLocale::Chinese, QLocale::China));

    const LogCapture log;
    QCOMPARE(Global::instance.ReadConfig(), 0);
    QCOMPARE(Global::instance.language, QStringLiteral("zh"));
    QCOMPARE(log.Messages().size(), 2);
    QCOMPARE(log.Messages().at(1), LogLine::LanguageFileOpenFailed());
    QCOMPARE(Global::instance.scriptPath, home.Home() + QStringLiteral("/AutoUpdate/update.scpt"));
}

void TestReadConfig::missingLanguageFallsBackToTheSystem_data()
{
    QTest::addColumn<QLocale>("locale");
    QTest::addColumn<QString>("language");
    QTest::newRow("mainland China")
        << QLocale(QLocale::Chinese, QLocale::China) << QStringLiteral("zh");
    QTest::newRow("Taiwan") << QLocale(QLocale::Chinese, QLocale::Taiwan) << QStringLiteral("zh");
    QTest::newRow("English") << QLocale(QLocale::English, QLocale::UnitedStates)
                             << QStringLiteral("en");
    QTest::newRow("German") << QLocale(QLocale::German, QLocale::Germany) << QStringLiteral("en");
    QTest::newRow("Japanese") << QLocale(QLocale::Japanese, QLocale::Japan) << QStringLiteral("en");
    QTest::newRow("C") << QLocale::c() << QStringLiteral("en");
}

void TestReadConfig::missingLanguageFallsBackToTheSystem()
{
    QFETCH(QLocale, locale);
    const TestHome home;
    WriteSoundFiles(home);
    QVERIFY(QFile::remove(LanguagePath(home)));
    const SystemLocale system(locale);
    FillFields();

    const LogCapture log;
    QCOMPARE(Global::instance.ReadConfig(), 0);
    QTEST(Global::instance.language, "language");
    QCOMPARE(log.Messages().size(), 2);
    QVERIFY(log.Messages().at(0).startsWith(LogLine::ConfigurationBegin()));
    QCOMPARE(log.Messages().at(1), LogLine::LanguageFileMissing());
}

void TestReadConfig::scriptLiesUnderTheHomeFolderWhateverTheFilesSay()
{
    const TestHome home;
    WriteSoundFiles(home);
    QJsonObject config = SoundConfig(home);
    config.insert(QStringLiteral("scriptPath"), QStringLiteral("C:/elsewhere/update.scpt"));
    WriteConfig(home, config);
    QCOMPARE(Global::instance.ReadConfig(), 0);
    QCOMPARE(Global::instance.scriptPath, home.Home() + QStringLiteral("/AutoUpdate/update.scpt"));
}

void TestReadConfig::filesAreClosedAndUnchanged()
{
    const TestHome home;
    WriteSoundFiles(home);
    const QString updateConfig = home.UpdateConfigFile();
    const QByteArray before = ReadFile(updateConfig);
    QCOMPARE(Global::instance.ReadConfig(), 0);
    QCOMPARE(ReadFile(updateConfig), before);
    QCOMPARE(ReadFile(ClientConfigPath(home)), QByteArray(clientConfig));
    // Windows does not remove an open file.
    QVERIFY(QFile::remove(updateConfig));
    QVERIFY(QFile::remove(ClientConfigPath(home)));
    QVERIFY(QFile::remove(LanguagePath(home)));
}

void TestReadConfig::secondLoadReplacesTheFirst()
{
    const TestHome home;
    WriteSoundFiles(home);
    QCOMPARE(Global::instance.ReadConfig(), 0);
    QJsonObject config = SoundConfig(home);
    config.remove(QStringLiteral("noRemindVersion"));
    config.remove(QStringLiteral("noRemind"));
    WriteConfig(home, config);
    WriteFile(ClientConfigPath(home), R"({"client": {"version": "2.0.0"}})");
    QCOMPARE(Global::instance.ReadConfig(), 0);
    QCOMPARE(Global::instance.noRemindVersion, QString());
    QCOMPARE(Global::instance.noRemind, 0);
    QCOMPARE(Global::instance.currentVersion, QStringLiteral("2.0.0"));
}

QTEST_GUILESS_MAIN(TestReadConfig)
#include "tst_readconfig.moc"
