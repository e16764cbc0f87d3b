// SPDX-License-Identifier: MIT
#include "tests/release/vendor.h"

#include "release/publish/checking/verifyrelease.h"
#include "release/publish/publishing/publishrelease.h"
#include "release/publish/tree/releasetree.h"
#include "tests/support/testhome.h"

#include <QDir>
#include <QDirIterator>

Vendor::Vendor()
{
    if (!m_room.isValid())
        qFatal("no temporary folder: %s", qPrintable(m_room.errorString()));
    WriteFile(Client(QStringLiteral("a.txt")), QByteArray(1000, 'a'));
    WriteFile(Client(QStringLiteral("plug ins/deep/b.txt")), "b");
    QDir().mkpath(Client(QStringLiteral("empty")));
    WriteFile(Path(QStringLiteral("zh.txt")), u8"新功能\n");
    WriteFile(Path(QStringLiteral("en.txt")), "\xEF\xBB\xBF New things\r\nand more \n");
}

QString Vendor::Client(const QString &path) const
{
    return QDir::cleanPath(Path(QStringLiteral("client/")) + path);
}

QString Vendor::Tree(const QString &path) const
{
    return QDir::cleanPath(Path(QStringLiteral("site/")) + path);
}

Request Vendor::ZipRequest() const
{
    Request request;
    request.command = Request::Zip;
    request.source = Client();
    request.name = QStringLiteral("Client");
    request.version = QStringLiteral("2.1.3");
    request.notesZhFile = Path(QStringLiteral("zh.txt"));
    request.notesEnFile = Path(QStringLiteral("en.txt"));
    request.out = Tree();
    request.updaterFolder = QStringLiteral("AutoUpdate");
    return request;
}

Request Vendor::InstallerRequest() const
{
    Request request = ZipRequest();
    request.command = Request::Installer;
    request.source = Path(QStringLiteral("Setup-2.1.3.exe"));
    request.name.clear();
    WriteFile(request.source, "MZ installer");
    return request;
}

Request Vendor::VerifyRequest() const
{
    Request request;
    request.command = Request::Verify;
    request.source = Tree();
    request.updaterFolder = QStringLiteral("AutoUpdate");
    return request;
}

QString Vendor::OfferFile(const QString &version) const
{
    return Tree(QStringLiteral("check/answers/%1/Client-%1.zip.json").arg(version));
}

ReleaseList Vendor::List() const
{
    ReleaseList list;
    if (const Failure failure = ReleaseTree(Tree()).Read(list))
        qFatal("%s", qPrintable(failure->message));
    return list;
}

Outcome Publish(const Request &request)
{
    Progress progress(Progress::Silent);
    return PublishRelease(request, progress);
}

Outcome Verify(const Vendor &vendor)
{
    Progress progress(Progress::Silent);
    return VerifyRelease(vendor.VerifyRequest(), progress);
}

QMap<QString, QByteArray> Snapshot(const QString &folder)
{
    QMap<QString, QByteArray> snapshot;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        const QString path = QDir(folder).relativeFilePath(it.filePath());
        if (it.fileInfo().isDir())
            snapshot.insert(path + QLatin1Char('/'), QByteArray());
        else
            snapshot.insert(path, ReadFile(it.filePath()));
    }
    return snapshot;
}

QStringList Rules(const Findings &findings)
{
    QStringList rules;
    for (const Finding &finding : findings)
        rules.append(finding.rule);
    return rules;
}

QString LinesOf(const Findings &findings)
{
    QStringList lines;
    for (const Finding &finding : findings)
        lines.append(finding.message);
    return lines.join(QLatin1Char('\n'));
}
