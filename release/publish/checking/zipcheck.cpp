// SPDX-License-Identifier: MIT
#include "release/publish/checking/zipcheck.h"

#include "install/zipdirectory.h"
#include "install/zipformat.h"
#include "install/zipunpacker.h"

#include <QFile>
#include <QtGui/private/qzipreader_p.h>

namespace
{

const QString kCreateAgain = QStringLiteral("create the package with \"publish zip\"");

Finding Damaged(const QString &what)
{
    return {QStringLiteral("zip-damaged"), QString(),
            QStringLiteral("%1; %2").arg(what, kCreateAgain)};
}

Finding Unfit(const QString &rule, const QString &path, const QString &what)
{
    return {rule, path, QStringLiteral("%1: %2; %3").arg(path, what, kCreateAgain)};
}

/// One package, with its raw headers and the entries that the updater's reader sees.
class Package
{
public:
    Package(const QString &path, const QString &packageFileName, Progress &progress)
        : m_file(path), m_reader(path), m_top(ReleaseRules::TopFolder(packageFileName)),
          m_progress(progress)
    {
    }

    ZipContents Check()
    {
        if (!ReadDirectories())
            return m_contents;
        for (int index = 0; index < m_directory.size(); ++index)
            AddEntry(index);
        m_contents.findings += ReleaseRules::CheckEntries(m_top, m_contents.entries);
        CheckData();
        return m_contents;
    }

private:
    bool ReadDirectories()
    {
        if (m_file.open(QIODevice::ReadOnly))
            m_directory = ReadZipDirectory(m_file);
        if (m_directory.isEmpty()) {
            Add(Damaged(QStringLiteral("the package is not a zip archive, or is an empty one")));
            return false;
        }
        m_seen = m_reader.fileInfoList();
        if (!ZipDirectoryIsWhole(m_file) || m_seen.size() != m_directory.size()) {
            Add(Damaged(
                QStringLiteral("the package's list of entries is damaged, or longer than %1")
                    .arg(ReleaseRules::MaxEntries)));
            return false;
        }
        return true;
    }

    void AddEntry(int index)
    {
        QString path = QString::fromUtf8(m_directory.at(index).rawName);
        const bool isFolder = path.endsWith(QLatin1Char('/')) || m_seen.at(index).isDir;
        while (path.endsWith(QLatin1Char('/')))
            path.chop(1);
        if (index == 0 && !(isFolder && path == m_top)) {
            Add({QStringLiteral("top-folder"), path,
                 QStringLiteral(
                     "the package's first entry is not the folder \"%1\", from which the "
                     "updater copies; %2")
                     .arg(m_top, kCreateAgain)});
        }
        if (path == m_top)
            return;
        if (!path.startsWith(m_top + QLatin1Char('/'))) {
            Add(Unfit(
                QStringLiteral("top-folder"), path,
                QStringLiteral("is outside the folder \"%1\" and would not be copied").arg(m_top)));
            return;
        }
        path.remove(0, m_top.size() + 1);
        if (m_seen.at(index).isSymLink)
            Add(Unfit(QStringLiteral("link"), path,
                      QStringLiteral("a link, which the updater skips")));
        m_contents.entries.append({path, isFolder, qint64(m_directory.at(index).size)});
        if (!isFolder)
            m_files.append({path, index});
    }

    void CheckData()
    {
        qint64 total = 0;
        for (const ZipEntry &entry : qAsConst(m_directory))
            total += entry.packedSize;
        m_progress.Begin(QStringLiteral("unpacking"), total);
        for (const File &file : qAsConst(m_files)) {
            const ZipEntry &entry = m_directory.at(file.index);
            if ((entry.flags & ZipFormat::EncryptedFlag) != 0) {
                Add(Unfit(QStringLiteral("encrypted"), file.path, QStringLiteral("is encrypted")));
            } else if (entry.method != ZipFormat::Stored && entry.method != ZipFormat::Deflated) {
                Add(Unfit(QStringLiteral("method"), file.path,
                          QStringLiteral("uses compression method %1, but the updater supports "
                                         "only stored and deflated")
                              .arg(entry.method)));
            } else if (!ZipDataIsSound(m_file, entry)) {
                Add(Unfit(QStringLiteral("data"), file.path,
                          QStringLiteral("its data does not match its header")));
            }
            if (!m_progress.Advance(entry.packedSize)) {
                Add(Interrupted());
                return;
            }
        }
    }

    void Add(const Finding &finding) { m_contents.findings.append(finding); }

    struct File {
        QString path;
        int index;
    };

    QFile m_file;
    QZipReader m_reader;
    QString m_top;
    Progress &m_progress;
    QVector<ZipEntry> m_directory;
    QVector<QZipReader::FileInfo> m_seen;
    QVector<File> m_files;
    ZipContents m_contents;
};

} // namespace

ZipContents CheckZipPackage(const QString &path, const QString &packageFileName, Progress &progress)
{
    return Package(path, packageFileName, progress).Check();
}
