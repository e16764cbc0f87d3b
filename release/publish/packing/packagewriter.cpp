// SPDX-License-Identifier: MIT
#include "release/publish/packing/packagewriter.h"

#include "release/publish/base/cannotwrite.h"
#include "release/publish/base/hostsystem.h"
#include "release/publish/packing/zipwriter.h"

#include <QFile>

namespace
{

using ReleaseRules::Entry;

constexpr qint64 kPieceSize = 256LL * 1024;

constexpr int kLeastSize = 64;        // in bytes; compressing smaller files saves nothing
constexpr int kProbeSize = 64 * 1024; // in bytes
constexpr int kFastestPacking = 1;
constexpr int kWorthwhilePart = 32; // saving less than one part in so many is not worthwhile

Finding Changed(const Entry &entry)
{
    return {QStringLiteral("changed"), entry.path,
            QStringLiteral("%1: changed while it was packed, or cannot be read completely; make "
                           "sure that nothing writes to the client's folder")
                .arg(entry.path)};
}

/**
 * True when @p file is already compressed, like pictures and archives: compressing it again would
 * take long and make it larger. Samples its beginning, middle and end.
 */
bool IsPackedAlready(QFile &file)
{
    if (file.size() < kProbeSize)
        return false;
    const qint64 last = file.size() - kProbeSize;
    for (const qint64 start : {qint64(0), last / 2, last}) {
        if (!file.seek(start))
            return false;
        const int packed = qCompress(file.read(kProbeSize), kFastestPacking).size();
        if (packed < kProbeSize - kProbeSize / kWorthwhilePart)
            return false;
    }
    return true;
}

/// Writes one package.
class Packer
{
public:
    Packer(const QString &clientFolder, QFile &package, Progress &progress)
        : m_clientFolder(clientFolder), m_package(package),
          m_writer(package, ReleaseRules::MaxSize), m_progress(progress)
    {
    }

    Failure Pack(const QString &topFolder, const QVector<Entry> &entries)
    {
        if (!m_writer.AddFolder(topFolder))
            return WriteFailure();
        for (const Entry &entry : entries) {
            const QString path = topFolder + QLatin1Char('/') + entry.path;
            if (Failure failure = entry.isFolder ? AddFolder(path) : AddFile(entry, path))
                return failure;
        }
        if (!m_writer.Finish())
            return WriteFailure();
        return {};
    }

private:
    Failure WriteFailure() const
    {
        if (m_writer.Error() == ZipWriter::TooLarge)
            return ReleaseRules::CheckPackageSize(ReleaseRules::MaxSize + 1).first();
        return CannotWrite(m_package.fileName(), m_writer.ErrorText());
    }

    Failure AddFolder(const QString &path)
    {
        if (!m_writer.AddFolder(path))
            return WriteFailure();
        return m_progress.Advance(0) ? Failure() : Interrupted();
    }

    Failure AddFile(const Entry &entry, const QString &path)
    {
        QFile file(m_clientFolder + QLatin1Char('/') + entry.path);
        if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
            return Finding{QStringLiteral("unreadable"), entry.path,
                           QStringLiteral("%1: %2; correct its permissions")
                               .arg(entry.path, file.errorString())};
        }
        if (entry.size < kLeastSize || IsPackedAlready(file))
            return Copy(file, entry, path, ZipWriter::Stored);
        if (Failure failure = Copy(file, entry, path, ZipWriter::Deflated))
            return failure;
        if (m_writer.PackedSize() < entry.size)
            return {};
        if (!m_writer.RemoveLast())
            return WriteFailure();
        m_progress.Advance(-entry.size);
        return Copy(file, entry, path, ZipWriter::Stored);
    }

    Failure Copy(QFile &file, const Entry &entry, const QString &path, ZipWriter::Method method)
    {
        if (!file.seek(0))
            return Changed(entry);
        if (!m_writer.BeginFile(path, method))
            return WriteFailure();
        QByteArray piece(int(kPieceSize), Qt::Uninitialized);
        qint64 left = entry.size;
        // Asks for one byte more than expected, to notice that the file has grown.
        for (;;) {
            const qint64 count = file.read(piece.data(), qMin(left + 1, kPieceSize));
            if (count < 0 || count > left)
                return Changed(entry);
            if (count == 0)
                break;
            if (!m_writer.Write(piece.constData(), count))
                return WriteFailure();
            left -= count;
            if (!m_progress.Advance(count))
                return Interrupted();
        }
        if (left > 0)
            return Changed(entry);
        return m_writer.EndFile() ? Failure() : WriteFailure();
    }

    const QString &m_clientFolder;
    QFile &m_package;
    ZipWriter m_writer;
    Progress &m_progress;
};

} // namespace

Failure WritePackage(const QString &clientFolder, const QString &topFolder,
                     const QVector<Entry> &entries, const QString &target, Progress &progress)
{
    QFile package(target);
    if (!package.open(QIODevice::ReadWrite | QIODevice::Unbuffered | QIODevice::Truncate))
        return CannotWrite(package);
    if (Failure failure = Packer(clientFolder, package, progress).Pack(topFolder, entries))
        return failure;
    if (!HostSystem::SyncToDisk(package))
        return CannotWrite(package);
    return {};
}
