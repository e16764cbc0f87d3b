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

/// What two entries with one name have in common: the name in the local encoding, which is what
/// Qt's reader takes it for. Plain names need no copy.
QByteArray NameKey(const QByteArray &rawName)
{
    const bool isAscii = std::all_of(rawName.cbegin(), rawName.cend(),
                                     [](char character) { return uchar(character) < 0x80; });
    return isAscii ? rawName : QString::fromLocal8Bit(rawName).toUtf8();
}

/// One package being unpacked: the entries as Qt's reader lists them, and their data.
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
        // Archives made without file modes tell a folder by the slash at the end of its name only.
        if (index < m_directory.size() && m_directory.at(index).rawName.endsWith('/'))
            entry.isDir = true;
        return entry;
    }

    /// Finds the data of entry @p index. False when the headers tell that it cannot be had.
    bool Find(int index)
    {
        if (m_directory.size() != Count())
            return false;
        const ZipEntry &entry = m_directory.at(index);
        // Of two entries with one name, programs disagree which one counts: the first is taken.
        return m_firstOfName.value(NameKey(entry.rawName)) == index && m_unpacker.Find(entry);
    }

    /// Unpacks what Find() has found, as ZipUnpacker::Unpack() does.
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
    // The pieces are large: a buffer of the file's own would only be one more copy.
    QFile file(target);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        LogUnzipFailure(target, file.error());
        return false;
    }
    // A write that fails, as on a full disk, goes unnoticed; but nothing may follow the gap.
    bool isWhole = true;
    const bool isSound = archive.Unpack([&file, &isWhole](const char *data, qint64 size) {
        isWhole = isWhole && file.write(data, size) == size;
    });
    file.close();
    if (!isSound)
        LogUnzipFailure(target, QFileDevice::OpenError);
    return isSound;
}

/// False for a name that leads out of the folder, or that Windows takes for something else.
bool IsHarmlessEntryName(const QString &path)
{
    const QStringList segments = path.split(QLatin1Char('/'));
    return StaysInFolder(path) &&
           std::none_of(segments.cbegin(), segments.cend(), [](const QString &segment) {
               return WindowsNames::IsDevice(segment) ||
                      WindowsNames::HasInvisibleCharacter(segment);
           });
}

/// An archive must not be read while it is written over.
bool IsSameFile(const QFileInfo &target, const QFileInfo &package)
{
    // Comparing looks at every folder of the path; but hardly any target exists yet.
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

/// The same, where a list of entries that is too long for the memory is met like a damaged entry.
/// Qt reports that by an exception, which would end the process with the client stopped.
bool Unpack(const QString &packageFile, const QString &folder)
{
    try {
        return UnpackEntries(packageFile, folder);
    } catch (const std::bad_alloc &) {
        LogUnzipFailure(packageFile, QFileDevice::ResourceError);
        return false;
    }
}

/// Replaces a file that the client reads. @p name stands in the log.
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

    if (WriteConfigToFile(QStringLiteral("version")) == Success)
        qWarning() << "autoupdate config veison update successed";
    return Success;
}

bool Global::RunXcopy()
{
    // Overwrite without asking, sub-folders and empty ones too, the destination is a folder, no
    // list.
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
