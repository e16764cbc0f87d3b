// SPDX-License-Identifier: MIT
#include "install/folderremoval.h"

#include "install/platform.h"
#include "tests/support/testhome.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

namespace
{

QStringList Entries(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System |
                                  QDir::NoDotAndDotDot);
}

/// A folder to be emptied, and another one that must not change.
class Folders
{
public:
    Folders()
    {
        if (!QDir().mkpath(Folder()))
            qFatal("cannot create a folder");
        WriteFile(KeptFile(), "kept");
    }

    QString Folder() const { return m_root.filePath(QStringLiteral("Download")); }
    QString Outside() const { return m_root.filePath(QStringLiteral("Outside")); }
    QString KeptFile() const { return Outside() + QStringLiteral("/sub/kept.txt"); }

    /// A path inside the folder, whose parent folders are created.
    QString Inside(const QString &name) const
    {
        QString path = Folder() + QLatin1Char('/') + name;
        QDir().mkpath(path.left(path.lastIndexOf(QLatin1Char('/'))));
        return path;
    }

private:
    QTemporaryDir m_root;
};

} // namespace

class TestFolderRemoval : public QObject
{
    Q_OBJECT

private slots:
    void tellsLinksByAttributesAndTag_data();
    void tellsLinksByAttributesAndTag();
    void removesWhatAFolderContains();
    void removesReadOnlyFilesInSubFolders();
    void emptiesAFolderThatDoesNotExist();
    void ordinaryEntriesLeadNowhereElse();
#ifdef Q_OS_UNIX
    void unixRemovesLinksAtAnyDepthWithoutFollowing_data();
    void unixRemovesLinksAtAnyDepthWithoutFollowing();
    void unixTellsLinks();
    void unixLeavesTheTargetsPermissionsAlone();
#else
    void windowsRemovesJunctionsAtAnyDepthWithoutFollowing_data();
    void windowsRemovesJunctionsAtAnyDepthWithoutFollowing();
    void windowsDoesNotFollowTheHostsLinks_data();
    void windowsDoesNotFollowTheHostsLinks();
#endif
};

void TestFolderRemoval::tellsLinksByAttributesAndTag_data()
{
    QTest::addColumn<quint32>("attributes");
    QTest::addColumn<quint32>("tag");
    QTest::addColumn<bool>("leadsElsewhere");

    const auto add = [](const char *name, quint32 attributes, quint32 tag, bool leadsElsewhere) {
        QTest::newRow(name) << attributes << tag << leadsElsewhere;
    };
    add("folder", 0x10, 0, false);
    add("file", 0x20, 0, false);
    add("read-only hidden folder", 0x13, 0, false);
    add("junction", 0x410, 0xA0000003, true);
    add("hidden junction", 0x416, 0xA0000003, true);
    add("symbolic link to a folder", 0x410, 0xA000000C, true);
    add("symbolic link to a file", 0x420, 0xA000000C, true);
    add("Linux subsystem's link", 0x420, 0xA000001D, true);
    add("folder in cloud storage", 0x410, 0x9000001A, false);
    add("deduplicated file", 0x420, 0x80000013, false);
    add("compressed file", 0x420, 0x80000017, false);
    add("the host's link under Wine", 0x410, 0, true);
    add("left-over tag of an ordinary folder", 0x10, 0xA0000003, false);
}

void TestFolderRemoval::tellsLinksByAttributesAndTag()
{
    QFETCH(quint32, attributes);
    QFETCH(quint32, tag);

    QTEST(Platform::IsNameSurrogate(attributes, tag), "leadsElsewhere");
}

void TestFolderRemoval::removesWhatAFolderContains()
{
    const Folders folders;
    for (const char *name : {"old.zip", ".hidden", "sub/a.txt", "sub/deeper/and deeper/b.txt",
                             ".hidden folder/c.txt", "安装包/d.txt"})
        WriteFile(folders.Inside(QString::fromUtf8(name)), "x");
    folders.Inside(QStringLiteral("empty/folder/"));

    EmptyFolder(folders.Folder());

    QVERIFY(QDir(folders.Folder()).exists());
    QCOMPARE(Entries(folders.Folder()), QStringList());
    QCOMPARE(ReadFile(folders.KeptFile()), QByteArray("kept"));
}

void TestFolderRemoval::removesReadOnlyFilesInSubFolders()
{
    const Folders folders;
    const QString path = folders.Inside(QStringLiteral("sub/deeper/read-only.txt"));
    WriteFile(path, "x");
    QVERIFY(QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::ReadUser));

    EmptyFolder(folders.Folder());

    QCOMPARE(Entries(folders.Folder()), QStringList());
}

void TestFolderRemoval::emptiesAFolderThatDoesNotExist()
{
    const Folders folders;

    EmptyFolder(folders.Folder() + QStringLiteral("/missing"));

    QCOMPARE(Entries(folders.Folder()), QStringList());
}

void TestFolderRemoval::ordinaryEntriesLeadNowhereElse()
{
    const Folders folders;

    QVERIFY(!Platform::LeadsElsewhere(folders.Folder()));
    QVERIFY(!Platform::LeadsElsewhere(folders.KeptFile()));
    // In doubt it is a link.
    QVERIFY(Platform::LeadsElsewhere(folders.Inside(QStringLiteral("missing"))));
}

#ifdef Q_OS_UNIX
void TestFolderRemoval::unixRemovesLinksAtAnyDepthWithoutFollowing_data()
{
    QTest::addColumn<QString>("name");

    QTest::newRow("in the folder") << QStringLiteral("link");
    QTest::newRow("in a sub-folder") << QStringLiteral("sub/link");
    QTest::newRow("deep down, hidden") << QStringLiteral("a/b/.c/d/.link");
}

void TestFolderRemoval::unixRemovesLinksAtAnyDepthWithoutFollowing()
{
    QFETCH(QString, name);
    const Folders folders;
    const QString link = folders.Inside(name);
    QVERIFY(QFile::link(folders.Outside(), link + QStringLiteral(" to a folder")));
    QVERIFY(QFile::link(folders.KeptFile(), link + QStringLiteral(" to a file")));
    QVERIFY(QFile::link(folders.Outside() + QStringLiteral("/missing"),
                        link + QStringLiteral(" to nothing")));
    QVERIFY(QFile::link(folders.Folder(), link + QStringLiteral(" to the folder itself")));
    QVERIFY(QFile::link(link, link));

    EmptyFolder(folders.Folder());

    QCOMPARE(Entries(folders.Folder()), QStringList());
    QCOMPARE(ReadFile(folders.KeptFile()), QByteArray("kept"));
}

void TestFolderRemoval::unixTellsLinks()
{
    const Folders folders;
    const QString link = folders.Inside(QStringLiteral("link"));
    QVERIFY(QFile::link(folders.Outside(), link));
    const QString broken = folders.Inside(QStringLiteral("broken"));
    QVERIFY(QFile::link(folders.Outside() + QStringLiteral("/missing"), broken));

    QVERIFY(Platform::LeadsElsewhere(link));
    QVERIFY(Platform::LeadsElsewhere(broken));
    QVERIFY(!Platform::LeadsElsewhere(link + QStringLiteral("/sub")));
}

void TestFolderRemoval::unixLeavesTheTargetsPermissionsAlone()
{
    const Folders folders;
    const QByteArray kept = QFile::encodeName(folders.KeptFile());
    QCOMPARE(chmod(kept.constData(), 0400), 0);
    QVERIFY(QFile::link(folders.KeptFile(), folders.Inside(QStringLiteral("sub/link"))));
    QVERIFY(QFile::link(folders.KeptFile(), folders.Inside(QStringLiteral("link"))));

    EmptyFolder(folders.Folder());

    struct stat status = {};
    QCOMPARE(stat(kept.constData(), &status), 0);
    QCOMPARE(status.st_mode & 0777U, 0400U);
}
#else
void TestFolderRemoval::windowsRemovesJunctionsAtAnyDepthWithoutFollowing_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("kind");

    for (const char *kind : {"/J", "/D"}) {
        QTest::addRow("%s in the folder", kind)
            << QStringLiteral("link") << QString::fromLatin1(kind);
        QTest::addRow("%s in a sub-folder", kind)
            << QStringLiteral("sub/deeper/link") << QString::fromLatin1(kind);
    }
}

void TestFolderRemoval::windowsRemovesJunctionsAtAnyDepthWithoutFollowing()
{
    QFETCH(QString, name);
    QFETCH(QString, kind);
    const Folders folders;
    const QString link = folders.Inside(name);
    QProcess::execute(QStringLiteral("cmd"), {QStringLiteral("/c"), QStringLiteral("mklink"), kind,
                                              QDir::toNativeSeparators(link),
                                              QDir::toNativeSeparators(folders.Outside())});
    if (!QFile::exists(link + QStringLiteral("/sub/kept.txt")))
        QSKIP("Wine cannot create junctions; for symbolic links Windows may ask for more rights");
    QVERIFY(Platform::LeadsElsewhere(link));

    EmptyFolder(folders.Folder());

    QCOMPARE(Entries(folders.Folder()), QStringList());
    QCOMPARE(ReadFile(folders.KeptFile()), QByteArray("kept"));
}

void TestFolderRemoval::windowsDoesNotFollowTheHostsLinks_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("target");

    QTest::newRow("in the folder") << QStringLiteral("link") << QStringLiteral("../Outside");
    QTest::newRow("in a sub-folder")
        << QStringLiteral("sub/deeper/link") << QStringLiteral("../../../Outside");
}

/// Wine shows links of the host as reparse points and cannot remove them.
void TestFolderRemoval::windowsDoesNotFollowTheHostsLinks()
{
    QFETCH(QString, name);
    QFETCH(QString, target);
    const Folders folders;
    const QString link = folders.Inside(name);
    if (!QProcess::startDetached(QStringLiteral("Z:/bin/ln"),
                                 {QStringLiteral("-s"), target, QStringLiteral("link")},
                                 QFileInfo(link).path()))
        QSKIP("not under Wine");
    QTRY_VERIFY(QFile::exists(link + QStringLiteral("/sub/kept.txt")));
    QVERIFY(Platform::LeadsElsewhere(link));

    EmptyFolder(folders.Folder());

    QCOMPARE(ReadFile(folders.KeptFile()), QByteArray("kept"));
}
#endif

QTEST_GUILESS_MAIN(TestFolderRemoval)
#include "tst_folderremoval.moc"
