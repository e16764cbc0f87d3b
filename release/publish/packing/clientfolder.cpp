// SPDX-License-Identifier: MIT
#include "release/publish/packing/clientfolder.h"

#include "release/publish/base/hostsystem.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

namespace
{

void AddContents(const QDir &folder, const QString &prefix, const Exclusion &exclusion,
                 ClientFolder &client);

/// Qt's listing omits these names, so the files would be missing without a message.
void RefuseUndecodableNames(const QDir &folder, const QString &prefix, ClientFolder &client)
{
    const QByteArrayList names = HostSystem::UndecodableNames(folder.path());
    for (const QByteArray &name : names) {
        const QString path = prefix + EscapedName(name);
        client.findings.append(
            {QStringLiteral("name-encoding"), path,
             path + QStringLiteral(": the name is not valid UTF-8; rename the file or folder")});
    }
}

void AddItem(const QFileInfo &item, const QString &path, const Exclusion &exclusion,
             ClientFolder &client)
{
    if (exclusion.Matches(path)) {
        client.leftOut.append(path);
        return;
    }
    if (HostSystem::IsLink(item.filePath())) {
        client.findings.append(
            {QStringLiteral("link"), path,
             path + QStringLiteral(
                        ": a link, which the updater skips; replace it with what it points to")});
        return;
    }
    if (item.isDir()) {
        client.entries.append({path, true, 0});
        AddContents(QDir(item.filePath()), path + QLatin1Char('/'), exclusion, client);
        return;
    }
    // A file whose name cannot be decoded seems not to exist; it has a rule of its own.
    if (item.exists() && !item.isFile()) {
        client.findings.append({QStringLiteral("special-file"), path,
                                path + QStringLiteral(": neither a file nor a folder; remove it")});
        return;
    }
    client.entries.append({path, false, item.size()});
    client.totalSize += item.size();
}

void AddContents(const QDir &folder, const QString &prefix, const Exclusion &exclusion,
                 ClientFolder &client)
{
    if (!folder.isReadable()) {
        client.findings.append({QStringLiteral("unreadable"), prefix.left(prefix.size() - 1),
                                prefix + QStringLiteral(": the folder cannot be read; correct its "
                                                        "permissions")});
        return;
    }
    RefuseUndecodableNames(folder, prefix, client);
    const QFileInfoList items = folder.entryInfoList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    for (const QFileInfo &item : items)
        AddItem(item, prefix + item.fileName(), exclusion, client);
}

} // namespace

QString EscapedName(const QByteArray &name)
{
    QString text;
    for (const char character : name) {
        const auto byte = uchar(character);
        if (byte >= ' ' && byte < 0x7f)
            text += QLatin1Char(character);
        else
            text += QStringLiteral("\\x%1").arg(byte, 2, 16, QLatin1Char('0'));
    }
    return text;
}

ClientFolder ListClientFolder(const QString &folder, const Exclusion &exclusion)
{
    ClientFolder client;
    AddContents(QDir(folder), QString(), exclusion, client);
    return client;
}
