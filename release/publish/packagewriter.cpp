#include "release/publish/packagewriter.h"

#include "install/zipdirectory.h"
#include "release/publish/hostsystem.h"

#include <QFile>
#include <QtEndian>
#include <QtGui/private/qzipwriter_p.h>

namespace
{

using ReleaseRules::Entry;

// Places of the records: PKWARE's APPNOTE.TXT, 4.3.7, 4.3.12 and 4.3.16.
constexpr int kLocalTimeOffset = 10;
constexpr int kCentralHeaderSize = 46;
constexpr int kCentralTimeOffset = 12;
constexpr int kEndSize = 22;
constexpr int kEndDirectoryOffset = 16;

constexpr int kProbeSize = 64 * 1024; // in bytes
constexpr int kFastestPacking = 1;
constexpr int kWorthwhilePart = 32; // packing that saves less than one part in so many is not

/// Midnight of 1 January 1980, the first moment that the format can tell: time, then date.
const QByteArray kFirstMoment("\x00\x00\x21\x00", 4);

constexpr QFileDevice::Permissions kFileMode = QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                               QFileDevice::ReadGroup | QFileDevice::ReadOther;
constexpr QFileDevice::Permissions kFolderMode =
    kFileMode | QFileDevice::ExeOwner | QFileDevice::ExeGroup | QFileDevice::ExeOther;

/**
 * A file that remembers whether all that was written to it has gone out, for the framework's zip
 * writer does not look. Takes no more than a package may have.
 */
class PackageFile : public QFile
{
public:
    using QFile::QFile;

    bool IsGood() const { return m_failure.isEmpty() && !m_isFull; }
    bool IsFull() const { return m_isFull; }
    QString FailureText() const { return m_failure; }

protected:
    qint64 writeData(const char *data, qint64 size) override
    {
        if (!IsGood())
            return -1;
        if (pos() + size > ReleaseRules::MaxSize) {
            m_isFull = true;
            return -1;
        }
        const qint64 written = QFile::writeData(data, size);
        if (written != size)
            m_failure = error() == NoError ? QStringLiteral("the disk is full") : errorString();
        return written;
    }

private:
    QString m_failure;
    bool m_isFull = false;
};

Finding CannotWrite(const QString &path, const QString &reason)
{
    return {QStringLiteral("unwritable"), QString(),
            QStringLiteral("%1: %2; make room and see to the permissions").arg(path, reason)};
}

Failure WhatFailed(const PackageFile &package)
{
    if (package.IsFull())
        return ReleaseRules::CheckPackageSize(ReleaseRules::MaxSize + 1).first();
    if (!package.IsGood())
        return CannotWrite(package.fileName(), package.FailureText());
    return {};
}

Failure ReadClientFile(const QString &clientFolder, const Entry &entry, QByteArray &data)
{
    QFile file(clientFolder + QLatin1Char('/') + entry.path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        return Finding{
            QStringLiteral("unreadable"), entry.path,
            QStringLiteral("%1: %2; mend its permissions").arg(entry.path, file.errorString())};
    }
    data = file.readAll();
    if (data.size() != entry.size) {
        return Finding{QStringLiteral("changed"), entry.path,
                       QStringLiteral("%1: changed while it was packed, or cannot be read to its "
                                      "end; let nothing write to the client's folder")
                           .arg(entry.path)};
    }
    return {};
}

/**
 * True when @p data is of the kind that is packed already, such as pictures and archives: packing
 * it once more takes long, and makes it longer. Judged by pieces of its beginning, middle and end.
 */
bool IsPackedAlready(const QByteArray &data)
{
    if (data.size() < kProbeSize)
        return false;
    const int last = data.size() - kProbeSize;
    for (const int start : {0, last / 2, last}) {
        const auto *const probe = reinterpret_cast<const uchar *>(data.constData() + start);
        const int packed = qCompress(probe, kProbeSize, kFastestPacking).size();
        if (packed < kProbeSize - kProbeSize / kWorthwhilePart)
            return false;
    }
    return true;
}

/// Packs everything. The writer closes the package.
Failure Pack(const QString &clientFolder, const QString &topFolder, const QVector<Entry> &entries,
             PackageFile &package, Progress &progress)
{
    QZipWriter writer(&package);
    const auto addFolder = [&writer](const QString &path) {
        writer.setCreationPermissions(kFolderMode);
        writer.setCompressionPolicy(QZipWriter::NeverCompress);
        writer.addDirectory(path);
    };

    addFolder(topFolder);
    for (const Entry &entry : entries) {
        const QString path = topFolder + QLatin1Char('/') + entry.path;
        if (entry.isFolder) {
            addFolder(path);
        } else {
            QByteArray data;
            if (Failure failure = ReadClientFile(clientFolder, entry, data))
                return failure;
            writer.setCreationPermissions(kFileMode);
            writer.setCompressionPolicy(IsPackedAlready(data) ? QZipWriter::NeverCompress
                                                              : QZipWriter::AutoCompress);
            writer.addFile(path, data);
        }
        if (!package.IsGood())
            return WhatFailed(package);
        if (!progress.Advance(entry.size))
            return Interrupted();
    }
    writer.close();
    return WhatFailed(package);
}

/// The writer stamps each entry with the time of the day: all get the same one instead.
bool NormaliseTimes(PackageFile &package)
{
    const QVector<ZipEntry> entries = ReadZipDirectory(package);
    const qint64 end = package.size() - kEndSize;
    if (!package.seek(end + kEndDirectoryOffset))
        return false;
    const qint64 start = qFromLittleEndian<quint32>(package.read(4).constData());
    if (!package.seek(start))
        return false;
    QByteArray directory = package.read(end - start);

    // The writer adds neither extra fields nor comments: a header is followed by its name only.
    int header = 0;
    for (const ZipEntry &entry : entries) {
        directory.replace(header + kCentralTimeOffset, kFirstMoment.size(), kFirstMoment);
        header += kCentralHeaderSize + entry.rawName.size();
        if (!package.seek(entry.localHeaderOffset + kLocalTimeOffset) ||
            package.write(kFirstMoment) != kFirstMoment.size())
            return false;
    }
    return header == directory.size() && package.seek(start) &&
           package.write(directory) == directory.size();
}

} // namespace

Failure WritePackage(const QString &clientFolder, const QString &topFolder,
                     const QVector<Entry> &entries, const QString &target, Progress &progress)
{
    constexpr QIODevice::OpenMode mode = QIODevice::ReadWrite | QIODevice::Unbuffered;
    PackageFile package(target);
    if (!package.open(mode | QIODevice::Truncate))
        return CannotWrite(target, package.errorString());
    if (Failure failure = Pack(clientFolder, topFolder, entries, package, progress))
        return failure;
    if (!package.open(mode))
        return CannotWrite(target, package.errorString());
    if (!NormaliseTimes(package) || !HostSystem::SyncToDisk(package))
        return CannotWrite(target, package.errorString());
    return {};
}
