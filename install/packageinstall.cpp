#include "config/global.h"
#include "config/paths.h"
#include "install/windowsnames.h"
#include "install/zipdirectory.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QProcess>
#include <QtGui/private/qzipreader_p.h>

#include <algorithm>
#include <new>

namespace
{

const QLatin1String kZipSuffix(".zip");

/// One package being unpacked: the framework's reader, and a second look at what it would trust.
class PackageArchive
{
public:
    explicit PackageArchive(const QString &path) : m_reader(path), m_file(path)
    {
        m_entries = m_reader.fileInfoList();
        if (m_file.open(QIODevice::ReadOnly))
            m_directory = ReadZipDirectory(m_file);
        for (int index = m_directory.size() - 1; index >= 0; --index)
            m_firstOfName.insert(ReaderName(index), index);
    }

    const QVector<QZipReader::FileInfo> &Entries() const { return m_entries; }

    /// Archives made without file modes tell a folder by the slash at the end of its name only.
    bool IsFolder(int index) const
    {
        return m_entries.at(index).isDir ||
               (index < m_directory.size() && m_directory.at(index).rawName.endsWith('/'));
    }

    /// The data of entry @p index into @p data. False when it cannot be had.
    bool Read(int index, QByteArray &data)
    {
        if (m_directory.size() != m_entries.size())
            return false;
        const ZipEntry &entry = m_directory.at(index);
        const QString name = ReaderName(index);
        // Of two entries with one name the reader always hands out the first one's data.
        if (m_firstOfName.value(name) != index || !ZipDataIsSound(m_file, entry))
            return false;
        data = m_reader.fileData(name);
        return data.size() == qint64(entry.size);
    }

private:
    /// The name that the reader finds data by: in the local encoding, whatever the archive says.
    QString ReaderName(int index) const
    {
        return QString::fromLocal8Bit(m_directory.at(index).rawName);
    }

    QZipReader m_reader;
    QFile m_file;
    QVector<QZipReader::FileInfo> m_entries;
    QVector<ZipEntry> m_directory;
    QHash<QString, int> m_firstOfName;
};

void LogUnzipFailure(const QString &target, QFileDevice::FileError error)
{
    qDebug() << "unzip " << target << " failed:" << int(error);
}

bool WriteFileEntry(const QString &target, const QByteArray &data)
{
    QFile file(target);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        LogUnzipFailure(target, file.error());
        return false;
    }
    file.write(data);
    file.close();
    return true;
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

/// Unpacks every entry of @p packageFile below @p folder, which ends with a slash.
bool UnpackEntries(const QString &packageFile, const QString &folder)
{
    PackageArchive archive(packageFile);
    for (int index = 0; index < archive.Entries().size(); ++index) {
        const QZipReader::FileInfo &entry = archive.Entries().at(index);
        const QString target = folder + entry.filePath;
        if (entry.isSymLink)
            continue;
        // An archive is not read while it is written over.
        if (!IsHarmlessEntryName(entry.filePath) || QFileInfo(target) == QFileInfo(packageFile)) {
            LogUnzipFailure(target, QFileDevice::OpenError);
            return false;
        }
        if (archive.IsFolder(index)) {
            if (!QDir(target).exists())
                QDir().mkpath(target);
            continue;
        }
        QByteArray data;
        if (!archive.Read(index, data)) {
            LogUnzipFailure(target, QFileDevice::OpenError);
            return false;
        }
        if (!WriteFileEntry(target, data))
            return false;
    }
    qInfo() << packageFile << " successfully decompressed";
    return true;
}

/// The same, where a machine with too little memory for an entry is met like a damaged entry. Qt
/// reports that by an exception, which would end the process with the client stopped.
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
