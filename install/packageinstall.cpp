// SPDX-License-Identifier: MIT
#include "config/configcontract.h"
#include "config/global.h"
#include "config/paths.h"
#include "install/windowsnames.h"
#include "install/zipdirectory.h"
#include "install/zipunpacker.h"

#include <QByteArray>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QProcess>
#include <QVector>
#include <QtGui/private/qzipreader_p.h>

#include <algorithm>
#include <new>

namespace
{

const QLatin1String kZipSuffix(".zip");

/// Equal for entries with the same name. The name is decoded in the local encoding, as Qt's reader
/// does it; ASCII names need no conversion.
QByteArray NameKey(const QByteArray &rawName)
{
    const bool isAscii = std::all_of(rawName.cbegin(), rawName.cend(),
                                     [](char character) { return uchar(character) < 0x80; });
    return isAscii ? rawName : QString::fromLocal8Bit(rawName).toUtf8();
}

/// A package that is being unpacked: the entries as Qt's reader lists them, and their data.
class PackageArchive
{
public:
    explicit PackageArchive(const QString &path) : m_reader(path), m_file(path), m_unpacker(m_file)
    {
        if (m_file.open(QIODevice::ReadOnly))
            m_directory = ReadZipDirectory(m_file);
        m_firstOfName.reserve(m_directory.size());
        for (int index = m_directory.size() - 1; index >= 0; --index)
            m_firstOfName.insert(NameKey(m_directory.at(index).rawName), index);
    }

    int Count() const { return m_reader.count(); }

    QZipReader::FileInfo Entry(int index) const
    {
        QZipReader::FileInfo entry = m_reader.entryInfoAt(index);
        // In archives without file modes only the slash at the end of its name marks a folder.
        if (index < m_directory.size() && m_directory.at(index).rawName.endsWith('/'))
            entry.isDir = true;
        return entry;
    }

    /// Finds the data of entry @p index. False when the headers show that it cannot be unpacked.
    bool Find(int index)
    {
        if (m_directory.size() != Count())
            return false;
        const ZipEntry &entry = m_directory.at(index);
        // Programs disagree about which of two entries with the same name counts, so only the first
        // one is accepted.
        return m_firstOfName.value(NameKey(entry.rawName)) == index && m_unpacker.Find(entry);
    }

    /// Unpacks the entry that Find() has found; see ZipUnpacker::Unpack().
    bool Unpack(const ZipUnpacker::Sink &sink) { return m_unpacker.Unpack(sink); }

private:
    QZipReader m_reader;
    QFile m_file;
    ZipUnpacker m_unpacker;
    QVector<ZipEntry> m_directory;
    QHash<QByteArray, int> m_firstOfName;
};

void LogUnzipFailure(const QString &target, QFileDevice::FileError error)
{
    qDebug() << "unzip " << target << " failed:" << int(error);
}

/// Unpacks the entry that @p archive has found.
bool WriteFileEntry(const QString &target, PackageArchive &archive)
{
    // Unbuffered: the pieces are large, so a buffer would just be another copy.
    QFile file(target);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        LogUnzipFailure(target, file.error());
        return false;
    }
    // A failed write, for instance on a full disk, is not reported; but nothing is written after
    // the gap.
    bool isWhole = true;
    const bool isSound = archive.Unpack([&file, &isWhole](const char *data, qint64 size) {
        isWhole = isWhole && file.write(data, size) == size;
    });
    file.close();
    if (!isSound)
        LogUnzipFailure(target, QFileDevice::OpenError);
    return isSound;
}

/// False for a name that leads out of the folder or is not an ordinary file name on Windows.
bool IsHarmlessEntryName(const QString &path)
{
    const QStringList segments = path.split(QLatin1Char('/'));
    return StaysInFolder(path) &&
           std::none_of(segments.cbegin(), segments.cend(), [](const QString &segment) {
               return WindowsNames::IsDevice(segment) ||
                      WindowsNames::HasInvisibleCharacter(segment);
           });
}

/// True when unpacking to @p target would overwrite the package, which is still being read.
bool IsSameFile(const QFileInfo &target, const QFileInfo &package)
{
    // Few targets exist yet, and the comparison is slow: it looks at every folder of the path.
    return target.exists() && target == package;
}

/// Unpacks every entry of @p packageFile below @p folder, which ends with a slash.
bool UnpackEntries(const QString &packageFile, const QString &folder)
{
    const QFileInfo package(packageFile);
    PackageArchive archive(packageFile);
    for (int index = 0; index < archive.Count(); ++index) {
        const QZipReader::FileInfo entry = archive.Entry(index);
        const QString target = folder + entry.filePath;
        if (entry.isSymLink)
            continue;
        if (!IsHarmlessEntryName(entry.filePath) || IsSameFile(QFileInfo(target), package)) {
            LogUnzipFailure(target, QFileDevice::OpenError);
            return false;
        }
        if (entry.isDir) {
            if (!QDir(target).exists())
                QDir().mkpath(target);
            continue;
        }
        if (!archive.Find(index)) {
            LogUnzipFailure(target, QFileDevice::OpenError);
            return false;
        }
        if (!WriteFileEntry(target, archive))
            return false;
    }
    qInfo() << packageFile << " successfully decompressed";
    return true;
}

/// Calls UnpackEntries() and treats a list of entries that does not fit into memory like a damaged
/// entry. Qt throws an exception for it, which would end the process while the client is stopped.
bool Unpack(const QString &packageFile, const QString &folder)
{
    try {
        return UnpackEntries(packageFile, folder);
    } catch (const std::bad_alloc &) {
        LogUnzipFailure(packageFile, QFileDevice::ResourceError);
        return false;
    }
}

/// Replaces a file that the client reads. @p name is the file's name in the log.
bool WriteClientFile(const char *name, const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        qDebug() << (QByteArray(name) + " write failed:").constData() << int(file.error());
        return false;
    }
    file.write(content);
    file.close();
    qInfo() << (QByteArray(name) + " write successed").constData();
    return true;
}

QString ParentOfWorkingFolder()
{
    const QString current = QDir::currentPath();
    return current.left(current.lastIndexOf(QLatin1Char('/')));
}

QString WithBackSlashes(QString path)
{
    return path.replace(QLatin1Char('/'), QLatin1Char('\\'));
}

} // namespace

int Global::InstallPackage(const QString &packageFile)
{
    packageDir = QFileInfo(packageFile).absolutePath() + QLatin1Char('/');
    if (!Unpack(packageFile, packageDir))
        return Failure;

    if (!WriteClientFile("update.log", Paths::NotesFile(), latestVersionInfo.toUtf8()))
        return Failure;
    if (!WriteClientFile("isShowUpdataInfo.txt", Paths::NotesMarkerFile(), "1"))
        return Failure;

    packageDir = packageFile.split(kZipSuffix).first() + QStringLiteral("/*");
    packageDir = WithBackSlashes(packageDir);
    if (!RunXcopy())
        return Failure;

    if (WriteConfigToFile(ConfigContract::Selector::InstalledVersion) == Success)
        qWarning() << "autoupdate config veison update successed";
    return Success;
}

bool Global::RunXcopy()
{
    // Overwrite without asking, copy sub-folders including empty ones, treat the destination as a
    // folder, do not list the files.
    const QStringList arguments = {QStringLiteral("/y"), QStringLiteral("/e"),
                                   QStringLiteral("/i"), QStringLiteral("/q"),
                                   packageDir,           WithBackSlashes(ParentOfWorkingFolder())};
    QProcess xcopy;
    xcopy.start(QStringLiteral("xcopy"), arguments);
    if (!xcopy.waitForFinished(-1)) {
        qDebug() << "copy file error: " << xcopy.error();
        xcopy.close();
        return false;
    }
    xcopy.close();
    qInfo() << QDir::currentPath() << " copy file successed";
    return true;
}

void Global::WriteScript(const QString &text) const
{
    QFile file(scriptPath);
    if (!file.open(QIODevice::ReadWrite | QIODevice::Truncate)) {
        qDebug() << text << " write failed:" << int(file.error());
        return;
    }
    file.write(text.toUtf8());
    file.close();
    qInfo() << "cmdscpt write successed";
}
