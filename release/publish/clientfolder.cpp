#include "release/publish/clientfolder.h"

#include "release/publish/hostsystem.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

namespace
{

void AddContents(const QDir &folder, const QString &prefix, const Exclusion &exclusion,
                 ClientFolder &client);

/// @p name with the bytes that are not ASCII written as "\\xff".
QString Escaped(const QByteArray &name)
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

/// What Qt's list of a folder does not hold would be missing without a word.
void RefuseNamesThatAreNoText(const QDir &folder, const QString &prefix, ClientFolder &client)
{
    const QByteArrayList names = HostSystem::NamesThatAreNoText(folder.path());
    for (const QByteArray &name : names) {
        const QString path = prefix + Escaped(name);
        client.findings.append({QStringLiteral("name-encoding"), path,
                                path + QStringLiteral(": the name is no text in this system's "
                                                      "encoding; rename it")});
    }
}

void AddItem(const QFileInfo &item, const QString &path, const Exclusion &exclusion,
             ClientFolder &client)
{
    if (exclusion.Holds(path)) {
        client.leftOut.append(path);
        return;
    }
    if (HostSystem::IsLink(item.filePath())) {
        client.findings.append({QStringLiteral("link"), path,
                                path + QStringLiteral(": a link, which the updater skips; put what "
                                                      "it points to in its place")});
        return;
    }
    if (item.isDir()) {
        client.entries.append({path, true, 0});
        AddContents(QDir(item.filePath()), path + QLatin1Char('/'), exclusion, client);
        return;
    }
    // A name that the system's encoding cannot tell leads nowhere: its own rule speaks of it.
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
    RefuseNamesThatAreNoText(folder, prefix, client);
    QFileInfoList items = folder.entryInfoList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Unsorted);
    std::sort(items.begin(), items.end(), [](const QFileInfo &one, const QFileInfo &other) {
        return one.fileName() < other.fileName();
    });
    for (const QFileInfo &item : qAsConst(items))
        AddItem(item, prefix + item.fileName(), exclusion, client);
}

} // namespace

ClientFolder ListClientFolder(const QString &folder, const Exclusion &exclusion)
{
    ClientFolder client;
    AddContents(QDir(folder), QString(), exclusion, client);
    return client;
}
