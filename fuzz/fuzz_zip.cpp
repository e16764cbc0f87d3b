// SPDX-License-Identifier: MIT
// Unpacking a zip package.

#include "config/global.h"
#include "fuzz/support/require.h"
#include "install/zipdirectory.h"
#include "tests/support/testhome.h"

#include <QBuffer>
#include <QByteArray>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QStringList>
#include <QtEndian>

#include <QtCore/private/qabstractfileengine_p.h>
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <utility>
#include <zlib.h>

extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t maxSize);

namespace
{

// The offsets of the numbers that the mutator corrects: APPNOTE.TXT, 4.3.7 and 4.3.12.
constexpr int kLocalHeaderSize = 30;
constexpr int kCentralHeaderSize = 46;
constexpr int kEndOfDirectorySize = 22;
constexpr int kCrcInLocalHeader = 14;
constexpr int kCrcInCentralHeader = 16;

/// A larger entry only costs time.
constexpr int kMostUnpacked = 1 << 20;

/// While it lives, requires every file that is looked for to be in the package's folder.
class FolderWatch : public QAbstractFileEngineHandler
{
public:
    FolderWatch(QString folder, QStringList others)
        : m_folder(std::move(folder)), m_others(std::move(others))
    {
    }

    QAbstractFileEngine *create(const QString &fileName) const override
    {
        const QString path = QDir::cleanPath(fileName);
        Require(path == QLatin1String(".") || path == m_folder ||
                    path.startsWith(m_folder + QLatin1Char('/')) || m_others.contains(path),
                "nothing outside the package's folder is accessed", fileName);
        return nullptr;
    }

private:
    QString m_folder;
    QStringList m_others;
};

const TestHome &TheHome()
{
    static const TestHome home;
    return home;
}

QString PackageFolder()
{
    return TheHome().Home() + QStringLiteral("/AppData/Local/Client");
}

/// The paths below @p folder, without those in the package's folder.
QStringList Surroundings(const QString &folder)
{
    QStringList paths;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        if (!path.startsWith(PackageFolder()))
            paths.append(path);
    }
    paths.sort();
    return paths;
}

bool HasContentOf(const QByteArray &content, const ZipEntry &entry)
{
    const uLong crc =
        crc32(0, reinterpret_cast<const Bytef *>(content.constData()), uInt(content.size()));
    return content.size() == qint64(entry.size) && crc == entry.crc32;
}

/// Each file must be as an entry declares it; the one at which the unpacking ended may be smaller.
void RequireDeclaredFiles(const QString &package, const QVector<ZipEntry> &entries,
                          const CleanLog &log)
{
    int mayBePartial = log.Has(QStringLiteral("unzip ")) ? 1 : 0;
    QDirIterator it(PackageFolder(),
                    QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        Require(!it.fileInfo().isSymLink(), "no link is unpacked", path);
        if (it.fileInfo().isDir() || path == package)
            continue;
        const QByteArray content = ReadFile(path);
        if (std::any_of(entries.cbegin(), entries.cend(),
                        [&content](const ZipEntry &entry) { return HasContentOf(content, entry); }))
            continue;
        Require(mayBePartial-- > 0, "each file is as an entry declares it", path);
        Require(std::any_of(entries.cbegin(), entries.cend(),
                            [&content](const ZipEntry &entry) {
                                return content.size() <= qint64(entry.size);
                            }),
                "no file is larger than an entry declares", path);
    }
}

QVector<ZipEntry> EntriesOf(QByteArray archive)
{
    QBuffer buffer(&archive);
    buffer.open(QIODevice::ReadOnly);
    return ReadZipDirectory(buffer);
}

bool TakesTooLong(const QVector<ZipEntry> &entries)
{
    return std::any_of(entries.cbegin(), entries.cend(), [](const ZipEntry &entry) {
        return entry.size > quint32(kMostUnpacked) && entry.size < 0x80000000U;
    });
}

/// The unpacked data of the entry; empty when it cannot be unpacked.
QByteArray Unpacked(const QByteArray &packed, quint16 method)
{
    if (method == 0)
        return packed;
    QByteArray plain(kMostUnpacked, Qt::Uninitialized);
    z_stream stream{};
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK)
        return QByteArray();
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(packed.constData()));
    stream.avail_in = uInt(packed.size());
    stream.next_out = reinterpret_cast<Bytef *>(plain.data());
    stream.avail_out = uInt(plain.size());
    inflate(&stream, Z_FINISH);
    plain.chop(int(stream.avail_out));
    inflateEnd(&stream);
    return plain;
}

void PutNumber(uint8_t *data, size_t size, qint64 offset, quint32 value)
{
    if (offset >= 0 && size_t(offset) + sizeof value <= size)
        qToLittleEndian(value, data + offset);
}

/// Corrects the checksums and sizes in the archive's headers: a wrong one ends the unpacking at
/// once.
void CorrectEntries(uint8_t *data, size_t size)
{
    const QByteArray archive(reinterpret_cast<const char *>(data), int(size));
    const int end = archive.lastIndexOf("PK\x05\x06");
    if (end < 0 || end + kEndOfDirectorySize > archive.size())
        return;
    qint64 central = qFromLittleEndian<quint32>(archive.constData() + end + 16);
    for (const ZipEntry &entry : EntriesOf(archive)) {
        const qint64 local = entry.localHeaderOffset;
        const qint64 data0 = local + kLocalHeaderSize + entry.rawName.size();
        if (data0 + entry.packedSize <= archive.size()) {
            const QByteArray plain =
                Unpacked(archive.mid(int(data0), int(entry.packedSize)), entry.method);
            const auto crc = quint32(
                crc32(0, reinterpret_cast<const Bytef *>(plain.constData()), uInt(plain.size())));
            for (const qint64 place : {local + kCrcInLocalHeader, central + kCrcInCentralHeader}) {
                PutNumber(data, size, place, crc);
                PutNumber(data, size, place + 8, quint32(plain.size()));
            }
        }
        const char *header = archive.constData() + central;
        central += kCentralHeaderSize + qFromLittleEndian<quint16>(header + 28) +
                   qFromLittleEndian<quint16>(header + 30) +
                   qFromLittleEndian<quint16>(header + 32);
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    // Qt looks for its settings in many folders when it logs its first message.
    qWarning("ready");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray archive(reinterpret_cast<const char *>(data), int(size));
    const QVector<ZipEntry> entries = EntriesOf(archive);
    if (TakesTooLong(entries))
        return 0;
    const QString root = QFileInfo(TheHome().ClientFolder()).path();
    const QString package = PackageFolder() + QStringLiteral("/pkg.zip");
    QDir(PackageFolder()).removeRecursively();
    WriteFile(package, archive);
    const QStringList before = Surroundings(root);
    ResetGlobal();
    const CleanLog log;

    // Without the client's data folder, the installation ends after unpacking, before any command.
    {
        const FolderWatch watch(
            PackageFolder(),
            {TheHome().Home() + QStringLiteral("/AppData/Roaming/norvaneAssistant/update.log")});
        Require(Global::instance.InstallPackage(package) == Global::Failure,
                "nothing is installed without the client's data folder");
    }
    Require(Surroundings(root) == before, "nothing is created outside the package's folder");
    Require(ReadFile(package) == archive, "the package is unchanged");
    RequireDeclaredFiles(package, entries, log);
    return 0;
}

/// Mutates as libFuzzer does by default; half of the time corrects the checksums and sizes
/// afterwards.
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t maxSize,
                                          unsigned int seed)
{
    const size_t mutated = LLVMFuzzerMutate(data, size, maxSize);
    if (std::minstd_rand(seed)() % 2 == 0)
        CorrectEntries(data, mutated);
    return mutated;
}
