// SPDX-License-Identifier: MIT
// Unpacking a zip package with entries of 1 MiB to 2 GiB. The archive is made here: the first byte
// of the input is the number of entries; eight bytes for each entry follow.

#include "config/global.h"
#include "fuzz/support/inputreader.h"
#include "fuzz/support/require.h"
#include "tests/support/testhome.h"

#include <QByteArray>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <QStringList>
#include <QVector>
#include <QtEndian>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <zlib.h>

namespace
{

constexpr int kPieceSize = 1 << 20;
constexpr qint64 kMaxSize = std::numeric_limits<qint32>::max();

/// The limit for all entries of an archive together, so that the disk is not filled.
constexpr qint64 kMaxTotal = kMaxSize + 64LL * kPieceSize;

// The limits of 32-bit numbers and of Qt's containers.
constexpr std::array<qint64, 8> kRareSizes{kMaxSize,      kMaxSize - 1,    kMaxSize - 24,
                                           kMaxSize - 31, kMaxSize - 32,   (1LL << 30) + 1,
                                           1LL << 30,     (1LL << 30) - 32};

enum Method : quint16 { Stored = 0, Deflated = 8 };
enum Lie { Honest, WrongSize = 4, WrongCrc, WrongPackedSize, NoEnd };

uLong CrcOf(const QByteArray &bytes)
{
    return crc32(0, reinterpret_cast<const Bytef *>(bytes.constData()), uInt(bytes.size()));
}

/// The checksum of the first @p size bytes of an endless repetition of @p piece.
uLong CrcOfRepeated(const QByteArray &piece, qint64 size)
{
    const uLong pieceCrc = CrcOf(piece);
    uLong crc = crc32(0, nullptr, 0);
    for (; size >= piece.size(); size -= piece.size())
        crc = crc32_combine(crc, pieceCrc, piece.size());
    return crc32_combine(crc, CrcOf(piece.left(int(size))), z_off_t(size));
}

/// Raw deflate data. Unless @p isLast, it ends at a byte boundary and more can follow.
QByteArray Deflate(QByteArray plain, bool isLast)
{
    z_stream stream{};
    Require(deflateInit2(&stream, 1, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) == Z_OK,
            "zlib compresses");
    QByteArray packed(int(deflateBound(&stream, uLong(plain.size()))) + 64, Qt::Uninitialized);
    stream.next_in = reinterpret_cast<Bytef *>(plain.data());
    stream.avail_in = uInt(plain.size());
    stream.next_out = reinterpret_cast<Bytef *>(packed.data());
    stream.avail_out = uInt(packed.size());
    deflate(&stream, isLast ? Z_FINISH : Z_FULL_FLUSH);
    Require(stream.avail_in == 0 && stream.avail_out > 0, "zlib compresses in one call");
    packed.chop(int(stream.avail_out));
    deflateEnd(&stream);
    return packed;
}

/// The pieces that deflated entries are made of.
struct Text {
    QByteArray plain =
        QByteArray("A client's file, line after line.\n").repeated(32768).left(kPieceSize);
    QByteArray packed = Deflate(plain, false);
};

const Text &TheText()
{
    static const Text text;
    return text;
}

/// One entry: what it is, and what its headers declare.
struct Entry {
    QByteArray name;
    Method method = Stored;
    Lie lie = Honest;
    qint64 size = 0;
    quint32 crc = 0;
    quint32 declaredSize = 0;
    quint32 declaredCrc = 0;
    quint32 declaredPackedSize = 0;
    quint32 headerOffset = 0;

    bool TellsTheTruth() const { return declaredSize == size && declaredCrc == crc; }
};

/// 1 MiB to 2 GiB; one in fifty is above 512 MiB. Derived from a checksum of the input, because the
/// fuzzer's preference for extreme numbers would make nearly all entries large.
qint64 SizeFor(quint32 key)
{
    const auto number =
        quint32(CrcOf(QByteArray(reinterpret_cast<const char *>(&key), int(sizeof key))));
    if (number % 256 == 0)
        return kRareSizes.at(number / 256 % kRareSizes.size());
    return qint64(std::exp2(20 + 11 * std::pow(number / 4294967296.0, 10)));
}

QVector<Entry> EntriesOf(InputReader reader)
{
    QVector<Entry> entries(1 + reader.Take<quint8>() % 4);
    qint64 left = kMaxTotal;
    for (Entry &entry : entries) {
        entry.size = std::min(SizeFor(reader.Take<quint32>()), left);
        left -= entry.size;
        const auto choices = reader.Take<quint8>();
        entry.method = (choices & 1) != 0 ? Deflated : Stored;
        entry.lie = Lie(choices >> 1 & 7);
        entry.name = "file" + QByteArray::number(reader.Take<quint8>() % 8);
        const auto amount = reader.Take<qint16>();

        const QByteArray zeros(kPieceSize, '\0');
        entry.crc =
            quint32(CrcOfRepeated(entry.method == Stored ? zeros : TheText().plain, entry.size));
        entry.declaredSize = quint32(entry.size + (entry.lie == WrongSize ? amount : 0));
        entry.declaredCrc = entry.crc ^ (entry.lie == WrongCrc ? quint32(amount) : 0);
        // The error for now; the size is added once the data has been written.
        entry.declaredPackedSize = quint32(entry.lie == WrongPackedSize ? amount : 0);
    }
    return entries;
}

template <class Number> void Append(QByteArray &record, Number number)
{
    record.resize(record.size() + int(sizeof number));
    qToLittleEndian(number, record.data() + record.size() - sizeof number);
}

/// The fields that both headers of an entry have, from the version needed on: APPNOTE.TXT, 4.3.7
/// and 4.3.12.
QByteArray CommonHeader(const Entry &entry)
{
    QByteArray header;
    Append<quint16>(header, 20);
    Append<quint16>(header, 0);
    Append<quint16>(header, entry.method);
    Append<quint32>(header, 0);
    Append<quint32>(header, entry.declaredCrc);
    Append<quint32>(header, entry.declaredPackedSize);
    Append<quint32>(header, entry.declaredSize);
    Append<quint16>(header, quint16(entry.name.size()));
    Append<quint16>(header, 0);
    return header;
}

QByteArray LocalHeader(const Entry &entry)
{
    return "PK\x03\x04" + CommonHeader(entry) + entry.name;
}

QByteArray CentralHeader(const Entry &entry)
{
    QByteArray header("PK\x01\x02");
    Append<quint16>(header, 20);
    header += CommonHeader(entry);
    header += QByteArray(10, '\0');
    Append<quint32>(header, entry.headerOffset);
    return header + entry.name;
}

/// Stored data is a hole in the file.
void WriteData(QFile &file, const Entry &entry)
{
    if (entry.method == Stored) {
        Require(file.resize(file.pos() + entry.size) && file.seek(file.size()),
                "the file can get a hole");
        return;
    }
    const Text &text = TheText();
    qint64 left = entry.size;
    for (; left >= kPieceSize; left -= kPieceSize)
        file.write(text.packed);
    file.write(Deflate(text.plain.left(int(left)), entry.lie != NoEnd));
}

void WritePackage(const QString &path, QVector<Entry> &entries)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    Require(file.open(QIODevice::WriteOnly), "the package is written");
    QByteArray directory;
    for (Entry &entry : entries) {
        entry.headerOffset = quint32(file.pos());
        file.write(LocalHeader(entry));
        const qint64 start = file.pos();
        WriteData(file, entry);
        const qint64 end = file.pos();
        entry.declaredPackedSize += quint32(end - start);
        file.seek(entry.headerOffset);
        file.write(LocalHeader(entry));
        file.seek(end);
        directory += CentralHeader(entry);
    }
    QByteArray ending("PK\x05\x06\0\0\0\0", 8);
    Append<quint16>(ending, quint16(entries.size()));
    Append<quint16>(ending, quint16(entries.size()));
    Append<quint32>(ending, quint32(directory.size()));
    Append<quint32>(ending, quint32(file.pos()));
    Append<quint16>(ending, 0);
    file.write(directory + ending);
    Require(file.flush() && file.error() == QFileDevice::NoError, "the package is written");
}

const TestHome &TheHome()
{
    static const TestHome home;
    return home;
}

/// The folder of the package, removed together with the unpacked files: these can take gigabytes.
class PackageFolder
{
public:
    PackageFolder() { Remove(); }
    ~PackageFolder() { Remove(); }
    Q_DISABLE_COPY(PackageFolder)

    static QString Path() { return TheHome().Home() + QStringLiteral("/AppData/Local/Client"); }

private:
    static void Remove() { QDir(Path()).removeRecursively(); }
};

/// The files of the whole test home.
QStringList Files()
{
    QStringList paths;
    QDirIterator it(QFileInfo(TheHome().ClientFolder()).path(),
                    QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext())
        paths.append(it.next());
    return paths;
}

uLong CrcOfFile(const QString &path)
{
    QFile file(path);
    Require(file.open(QIODevice::ReadOnly), "an unpacked file can be read", path);
    uLong crc = crc32(0, nullptr, 0);
    QByteArray piece(kPieceSize, Qt::Uninitialized);
    for (qint64 size = file.read(piece.data(), kPieceSize); size > 0;
         size = file.read(piece.data(), kPieceSize))
        crc = crc32(crc, reinterpret_cast<const Bytef *>(piece.constData()), uInt(size));
    return crc;
}

/// The first entry of that name, or -1: a second one ends the installation.
int IndexOf(const QVector<Entry> &entries, const QString &name)
{
    const auto *const entry =
        std::find_if(entries.cbegin(), entries.cend(), [&name](const Entry &candidate) {
            return QString::fromLatin1(candidate.name) == name;
        });
    return entry == entries.cend() ? -1 : int(entry - entries.cbegin());
}

/// Whether the unpacking ended at the entry for @p path.
bool EndedAt(const CleanLog &log, const QString &path)
{
    return log.Has(QStringLiteral("unzip  \"%1\"").arg(path));
}

void RequireDeclaredFiles(const QStringList &before, const QVector<Entry> &entries,
                          const CleanLog &log)
{
    const QString folder = PackageFolder::Path() + QLatin1Char('/');
    for (const QString &path : Files()) {
        if (before.contains(path))
            continue;
        Require(path.startsWith(folder), "files are only created in the package's folder", path);
        const int index = IndexOf(entries, path.mid(folder.size()));
        Require(index >= 0, "the package declares each file", path);
        const Entry &entry = entries.at(index);
        Require(QFileInfo(path).size() <= qint64(entry.declaredSize),
                "no file is larger than its entry declares", path);
        if (EndedAt(log, path))
            continue;
        Require(entry.TellsTheTruth(), "the installation ends at an entry with a wrong header",
                path);
        Require(QFileInfo(path).size() == entry.size && CrcOfFile(path) == entry.crc,
                "each file is as its entry declares it", path);
    }
}

/// Every entry before the first one that may fail must have been unpacked.
void RequireHonestFiles(const QString &package, const QVector<Entry> &entries, const CleanLog &log)
{
    // Qt's reader finds no entry whose offset needs more than 31 bits.
    if (QFileInfo(package).size() > kMaxSize)
        return;
    for (int index = 0; index < entries.size(); ++index) {
        const Entry &entry = entries.at(index);
        const QString name = QString::fromLatin1(entry.name);
        if (entry.lie >= WrongSize || IndexOf(entries, name) != index)
            return;
        const QString path = PackageFolder::Path() + QLatin1Char('/') + name;
        // A second entry of the same name may have ended the installation.
        const bool isOnlyOne =
            std::count_if(entries.cbegin(), entries.cend(),
                          [&](const Entry &other) { return other.name == entry.name; }) == 1;
        Require(QFile::exists(path) && !(isOnlyOne && EndedAt(log, path)),
                "an honest entry is unpacked", name);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    QVector<Entry> entries = EntriesOf(InputReader(data, size));
    const PackageFolder folder;
    const QString package = PackageFolder::Path() + QStringLiteral("/pkg.zip");
    WritePackage(package, entries);
    const QStringList before = Files();
    ResetGlobal();
    const CleanLog log;

    // Without the client's data folder, the installation ends after unpacking, before any command.
    Require(Global::instance.InstallPackage(package) == Global::Failure,
            "nothing is installed without the client's data folder");
    RequireDeclaredFiles(before, entries, log);
    RequireHonestFiles(package, entries, log);
    return 0;
}
