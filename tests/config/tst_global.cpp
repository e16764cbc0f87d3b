// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "config/paths.h"
#include "tests/support/testhome.h"

#include <QDir>
#include <QMetaObject>
#include <QTest>
#include <QThread>

#include <functional>
#include <memory>
#include <type_traits>
#include <vector>

// There is one object, and no second one can be created.
static_assert(!std::is_default_constructible<Global>::value, "a second object");
static_assert(!std::is_copy_constructible<Global>::value, "a second object");
static_assert(std::is_same<decltype(Global::packageSize), qint64>::value, "64 bits");
static_assert(std::is_same<decltype(Global::noRemind), qint32>::value, "32 bits");
static_assert(std::is_same<decltype(Global::updateType), qint32>::value, "32 bits");

class TestGlobal : public QObject
{
    Q_OBJECT

private slots:
    void everythingIsEmptyAtConstruction();
    void fieldsStandInTheirOrder();
    void metaObjectHasTheNameAndNothingOfItsOwn();
    void objectBelongsToTheMainThread();
    void onlyExactEnIsEnglish_data();
    void onlyExactEnIsEnglish();
    void pathsOfTheClientAreJoinedWithoutSeparator_data();
    void pathsOfTheClientAreJoinedWithoutSeparator();
    void filesLieUnderTheHomeFolder();
    void downloadFolderIsNamedAfterTheClient_data();
    void downloadFolderIsNamedAfterTheClient();
    void askingForPathsMakesNothing();
};

// Must come first, because later functions change the object.
void TestGlobal::everythingIsEmptyAtConstruction()
{
    const Global &global = Global::instance;
    for (const QString *text :
         {&global.appName, &global.appConfigFile, &global.appPath, &global.updateCheckUrl,
          &global.updatePackageUrl, &global.currentVersion, &global.noRemindVersion,
          &global.packageDir, &global.code, &global.desc, &global.id, &global.update,
          &global.latestVersion, &global.latestVersionUrl, &global.latestVersionInfo, &global.md5,
          &global.sha1, &global.scriptPath, &global.language})
        QVERIFY(text->isEmpty());
    QCOMPARE(global.noRemind, 0);
    QCOMPARE(global.packageSize, qint64(0));
    QCOMPARE(global.updateType, 0);
    QVERIFY(global.cmdLineArgs.isEmpty());
}

void TestGlobal::fieldsStandInTheirOrder()
{
    const Global &global = Global::instance;
    const std::vector<const void *> fields = {&global.appName,
                                              &global.appConfigFile,
                                              &global.appPath,
                                              &global.updateCheckUrl,
                                              &global.updatePackageUrl,
                                              &global.currentVersion,
                                              &global.noRemindVersion,
                                              &global.packageDir,
                                              &global.noRemind,
                                              &global.code,
                                              &global.desc,
                                              &global.id,
                                              &global.update,
                                              &global.latestVersion,
                                              &global.latestVersionUrl,
                                              &global.latestVersionInfo,
                                              &global.md5,
                                              &global.sha1,
                                              &global.packageSize,
                                              &global.updateType,
                                              &global.scriptPath,
                                              &global.language,
                                              &global.cmdLineArgs};
    for (std::size_t index = 1; index < fields.size(); ++index)
        QVERIFY(std::less<>()(fields[index - 1], fields[index]));
}

void TestGlobal::metaObjectHasTheNameAndNothingOfItsOwn()
{
    const QMetaObject *meta = Global::instance.metaObject();
    QCOMPARE(meta->className(), "Global");
    QCOMPARE(meta->superClass(), &QObject::staticMetaObject);
    QCOMPARE(meta->methodCount(), QObject::staticMetaObject.methodCount());
    QCOMPARE(meta->propertyCount(), QObject::staticMetaObject.propertyCount());
}

void TestGlobal::objectBelongsToTheMainThread()
{
    QVERIFY(!Global::instance.parent());
    QCOMPARE(Global::instance.thread(), QCoreApplication::instance()->thread());
}

void TestGlobal::onlyExactEnIsEnglish_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<bool>("english");
    QTest::newRow("en") << QStringLiteral("en") << true;
    QTest::newRow("empty") << QString() << false;
    QTest::newRow("zh") << QStringLiteral("zh") << false;
    QTest::newRow("EN") << QStringLiteral("EN") << false;
    QTest::newRow("En") << QStringLiteral("En") << false;
    QTest::newRow("en-US") << QStringLiteral("en-US") << false;
    QTest::newRow("en_GB") << QStringLiteral("en_GB") << false;
    QTest::newRow("blank at the end") << QStringLiteral("en ") << false;
    QTest::newRow("part of a word") << QStringLiteral("zhen") << false;
}

void TestGlobal::onlyExactEnIsEnglish()
{
    QFETCH(QString, language);
    const TestHome home;
    Global::instance.language = language;
    QTEST(Global::instance.IsEnglish(), "english");
}

void TestGlobal::pathsOfTheClientAreJoinedWithoutSeparator_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("config");
    QTest::newRow("with separator") << QStringLiteral("C:/Program Files/Client/")
                                    << QStringLiteral("C:/Program Files/Client/Client.exe")
                                    << QStringLiteral("C:/Program Files/Client/config.json");
    QTest::newRow("without separator")
        << QStringLiteral("C:/Client") << QStringLiteral("C:/ClientClient.exe")
        << QStringLiteral("C:/Clientconfig.json");
    QTest::newRow("back-slash") << QStringLiteral("C:\\Client\\")
                                << QStringLiteral("C:\\Client\\Client.exe")
                                << QStringLiteral("C:\\Client\\config.json");
    QTest::newRow("no folder") << QString() << QStringLiteral("Client.exe")
                               << QStringLiteral("config.json");
}

void TestGlobal::pathsOfTheClientAreJoinedWithoutSeparator()
{
    QFETCH(QString, folder);
    const TestHome home;
    Global::instance.appPath = folder;
    Global::instance.appName = QStringLiteral("Client.exe");
    Global::instance.appConfigFile = QStringLiteral("config.json");
    QTEST(Global::instance.ClientProgram(), "program");
    QTEST(Global::instance.ClientConfigFile(), "config");
}

void TestGlobal::filesLieUnderTheHomeFolder()
{
    const TestHome home;
    const QString clientData = home.Home() + QStringLiteral("/AppData/Roaming/norvaneAssistant/");
    QCOMPARE(Paths::UpdateConfigFile(), QStringLiteral("updateconfig.json"));
    QCOMPARE(Paths::LogFolder(), home.Home() + QStringLiteral("/AppData/Local/AutoUpdate"));
    QCOMPARE(Paths::LogFile(), Paths::LogFolder() + QStringLiteral("/AutoUpdate.log"));
    QCOMPARE(Paths::LanguageFile(), clientData + QStringLiteral("language.txt"));
    QCOMPARE(Paths::NotesFile(), clientData + QStringLiteral("update.log"));
    QCOMPARE(Paths::NotesMarkerFile(), clientData + QStringLiteral("isShowUpdataInfo.txt"));
    QCOMPARE(Paths::ScriptFile(), home.Home() + QStringLiteral("/AutoUpdate/update.scpt"));
}

void TestGlobal::downloadFolderIsNamedAfterTheClient_data()
{
    QTest::addColumn<QString>("appName");
    QTest::addColumn<QString>("folder");
    QTest::newRow("program") << QStringLiteral("Client.exe") << QStringLiteral("Client");
    QTest::newRow("two dots") << QStringLiteral("Client.beta.exe") << QStringLiteral("Client");
    QTest::newRow("no dot") << QStringLiteral("Client") << QStringLiteral("Client");
    QTest::newRow("blank") << QStringLiteral("My Client.exe") << QStringLiteral("My Client");
    QTest::newRow("Chinese") << QStringLiteral("客户端.exe") << QStringLiteral("客户端");
}

void TestGlobal::downloadFolderIsNamedAfterTheClient()
{
    QFETCH(QString, appName);
    QFETCH(QString, folder);
    const TestHome home;
    QCOMPARE(Paths::DownloadFolder(appName),
             home.Home() + QStringLiteral("/AppData/Local/") + folder);
}

void TestGlobal::askingForPathsMakesNothing()
{
    const TestHome home;
    Paths::LogFolder();
    Paths::NotesFile();
    Paths::ScriptFile();
    Paths::DownloadFolder(QStringLiteral("Client.exe"));
    QVERIFY(QDir(home.Home()).isEmpty());
}

QTEST_GUILESS_MAIN(TestGlobal)
#include "tst_global.moc"
