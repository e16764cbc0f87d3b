// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "net/serviceoffer.h"
#include "tests/support/testhome.h"

#include <QDir>
#include <QTest>

using Verdict = ServiceOffer::Verdict;
Q_DECLARE_METATYPE(ServiceOffer::Verdict)

class TestServiceOffer : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void onlyANewerVersionIsAnUpdate_data();
    void onlyANewerVersionIsAnUpdate();
    void silencedVersionIsOfferedOnlyOnRequest_data();
    void silencedVersionIsOfferedOnlyOnRequest();
    void harmfulNameIsNoUpdate_data();
    void harmfulNameIsNoUpdate();
    void packageIsNamedAfterItsAddress_data();
    void packageIsNamedAfterItsAddress();
    void judgingMakesNoFolder();
};

namespace
{

ServiceOffer Judged()
{
    return ReadServiceOffer(Global::instance);
}

} // namespace

/// Version 2.1.3 is offered to the client of version 1.0.0.
void TestServiceOffer::init()
{
    ResetGlobal();
    Global &global = Global::instance;
    global.appName = QStringLiteral("Client.exe");
    global.currentVersion = QStringLiteral("1.0.0");
    global.latestVersion = QStringLiteral("2.1.3");
    global.latestVersionUrl = QStringLiteral("https://packages.example/Package.zip");
    global.update = QStringLiteral("1");
}

void TestServiceOffer::onlyANewerVersionIsAnUpdate_data()
{
    QTest::addColumn<QString>("installed");
    QTest::addColumn<QString>("offered");
    QTest::addColumn<QString>("update");
    QTest::addColumn<Verdict>("verdict");
    const auto row = [](const char *tag, const char *installed, const char *offered,
                        const char *update, Verdict verdict) {
        QTest::newRow(tag) << QString::fromLatin1(installed) << QString::fromLatin1(offered)
                           << QString::fromLatin1(update) << verdict;
    };
    row("optional", "1.0.0", "2.1.3", "1", Verdict::Update);
    row("forced", "1.0.0", "2.1.3", "2", Verdict::Update);
    row("unknown mode", "1.0.0", "2.1.3", "7", Verdict::Update);
    row("no mode", "1.0.0", "2.1.3", "", Verdict::Update);
    row("no update", "1.0.0", "2.1.3", "0", Verdict::NoUpdate);
    row("mode that only looks like none", "1.0.0", "2.1.3", "00", Verdict::Update);
    row("installed version", "2.1.3", "2.1.3", "1", Verdict::Installed);
    row("installed version and no update", "2.1.3", "2.1.3", "0", Verdict::Installed);
    row("older version", "3.0.0", "2.1.3", "1", Verdict::Update);
    row("same version in another spelling", "2.1.3", "2.1.3.0", "1", Verdict::Update);
    row("no version", "1.0.0", "", "1", Verdict::Update);
    row("no version on either side", "", "", "1", Verdict::Installed);
}

void TestServiceOffer::onlyANewerVersionIsAnUpdate()
{
    QFETCH(QString, installed);
    QFETCH(QString, offered);
    QFETCH(QString, update);
    QFETCH(Verdict, verdict);
    Global::instance.currentVersion = installed;
    Global::instance.latestVersion = offered;
    Global::instance.update = update;
    QCOMPARE(Judged().verdict, verdict);
}

void TestServiceOffer::silencedVersionIsOfferedOnlyOnRequest_data()
{
    QTest::addColumn<int>("noRemind");
    QTest::addColumn<QString>("silenced");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<Verdict>("verdict");
    const auto row = [](const char *tag, int noRemind, const char *silenced,
                        const QStringList &arguments, Verdict verdict) {
        QTest::newRow(tag) << noRemind << QString::fromLatin1(silenced) << arguments << verdict;
    };
    const auto argument = [](const char *text) { return QStringList(QString::fromLatin1(text)); };
    row("silenced", 1, "2.1.3", {}, Verdict::Silenced);
    row("any number but zero", -7, "2.1.3", {}, Verdict::Silenced);
    row("not in force", 0, "2.1.3", {}, Verdict::Update);
    row("another version", 1, "2.1.2", {}, Verdict::Update);
    row("no version", 1, "", {}, Verdict::Update);
    row("-noremid", 1, "2.1.3", argument("-noremid"), Verdict::Update);
    row("-immediately", 1, "2.1.3", argument("-immediately"), Verdict::Update);
    row("other argument", 1, "2.1.3", argument("-Noremid"), Verdict::Silenced);
}

void TestServiceOffer::silencedVersionIsOfferedOnlyOnRequest()
{
    QFETCH(int, noRemind);
    QFETCH(QString, silenced);
    QFETCH(QStringList, arguments);
    QFETCH(Verdict, verdict);
    Global::instance.noRemind = noRemind;
    Global::instance.noRemindVersion = silenced;
    Global::instance.cmdLineArgs = arguments;
    QCOMPARE(Judged().verdict, verdict);
}

void TestServiceOffer::harmfulNameIsNoUpdate_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<Verdict>("verdict");
    const auto row = [](const char *tag, const char *url, Verdict verdict) {
        QTest::newRow(tag) << QString::fromUtf8(url) << verdict;
    };
    row("zip package", "https://packages.example/Package.zip", Verdict::Update);
    row("no name", "https://packages.example/", Verdict::Update);
    row("batch file", "https://packages.example/setup.bat", Verdict::UnusableName);
    row("device", "https://packages.example/NUL", Verdict::UnusableName);
    row("parent folder", "https://packages.example/..", Verdict::UnusableName);
    row("query", "https://packages.example/p.zip?x=1", Verdict::UnusableName);
}

void TestServiceOffer::harmfulNameIsNoUpdate()
{
    QFETCH(QString, url);
    QFETCH(Verdict, verdict);
    Global::instance.latestVersionUrl = url;
    QCOMPARE(Judged().verdict, verdict);

    // Nobody is told of a name that is not needed.
    Global::instance.update = QStringLiteral("0");
    QCOMPARE(Judged().verdict, Verdict::NoUpdate);
}

void TestServiceOffer::packageIsNamedAfterItsAddress_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("name");
    const auto row = [](const char *url, const char *name) {
        QTest::newRow(url) << QString::fromUtf8(url) << QString::fromUtf8(name);
    };
    row("https://packages.example/a/Package-2.1.3.zip", "Package-2.1.3.zip");
    row("Package.zip", "Package.zip");
    row("https://packages.example/a/", "");
    row("", "");
    row("https://packages.example/p.zip?next=/q.zip", "q.zip");
    row("https://packages.example/a%20b%2Fc.zip", "a%20b%2Fc.zip");
    row(u8"https://packages.example/安装包.zip", u8"安装包.zip");
    row("https://packages.example/setup.bat.exe", "setup.bat.exe");
}

void TestServiceOffer::packageIsNamedAfterItsAddress()
{
    QFETCH(QString, url);
    QFETCH(QString, name);
    const TestHome home;
    init();
    Global::instance.latestVersionUrl = url;

    const ServiceOffer offer = Judged();
    QCOMPARE(offer.verdict, Verdict::Update);
    QCOMPARE(offer.packageName, name);
    QVERIFY(offer.folder.isOwn);
    QCOMPARE(offer.PackagePath(), home.Home() + QStringLiteral("/AppData/Local/Client/") + name);
}

void TestServiceOffer::judgingMakesNoFolder()
{
    const TestHome home;
    init();
    QCOMPARE(Judged().verdict, Verdict::Update);
    QVERIFY(QDir(home.Home()).isEmpty());
}

QTEST_GUILESS_MAIN(TestServiceOffer)
#include "tst_serviceoffer.moc"
