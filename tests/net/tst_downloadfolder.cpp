// SPDX-License-Identifier: MIT
#include "net/downloadfolder.h"
#include "tests/support/testhome.h"

#include <QTest>

class TestDownloadFolder : public QObject
{
    Q_OBJECT

private slots:
    void onlyANamedClientHasAFolderOfItsOwn_data();
    void onlyANamedClientHasAFolderOfItsOwn();
};

void TestDownloadFolder::onlyANamedClientHasAFolderOfItsOwn_data()
{
    QTest::addColumn<QString>("appName");
    QTest::addColumn<QString>("folder");
    QTest::addColumn<bool>("isOwn");
    const auto row = [](const char *appName, const char *folder, bool isOwn) {
        QTest::newRow(appName) << QString::fromUtf8(appName) << QString::fromUtf8(folder) << isOwn;
    };
    row("Client.exe", "Client", true);
    row("Client.beta.exe", "Client", true);
    row("Client", "Client", true);
    row("My Client.exe", "My Client", true);
    row(u8"客户端.exe", u8"客户端", true);
    row("vendor/Client.exe", "vendor/Client", true);
    row("", "", false);
    row(".exe", "", false);
    row(" .exe", " ", false);
    row("vendor/.exe", "vendor/", false);
    row("vendor/ .exe", "vendor/ ", false);
}

void TestDownloadFolder::onlyANamedClientHasAFolderOfItsOwn()
{
    QFETCH(QString, appName);
    QFETCH(QString, folder);
    const TestHome home;
    const DownloadFolder found = DownloadFolderOf(appName);
    QCOMPARE(found.path, home.Home() + QStringLiteral("/AppData/Local/") + folder);
    QTEST(found.isOwn, "isOwn");
}

QTEST_GUILESS_MAIN(TestDownloadFolder)
#include "tst_downloadfolder.moc"
