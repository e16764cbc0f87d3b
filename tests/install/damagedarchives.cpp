// SPDX-License-Identifier: MIT
#include "tests/install/damagedarchives.h"

#include "tests/support/zipmaker.h"

#include <QTest>

#include <functional>

namespace
{

/// The index of the damaged entry.
constexpr int app = 1;

using Damage = std::function<void(ZipMaker &)>;

/// Adds a row with the three entries, of which "pkg/app.txt" has @p data, after @p damage.
void AddRow(const char *name, const QByteArray &data, ZipMaker::Packing packing,
            const Damage &damage)
{
    ZipMaker zip;
    zip.AddFolder(QStringLiteral("pkg"));
    zip.AddFile(QStringLiteral("pkg/app.txt"), data, packing);
    zip.AddFile(QStringLiteral("pkg/after.txt"), "after");
    damage(zip);
    QTest::addRow("%s, %s", name, packing == ZipMaker::Stored ? "stored" : "deflated")
        << zip.Bytes();
}

void AddDeflated(const char *name, const Damage &damage)
{
    AddRow(name, SomeText(), ZipMaker::Deflated, damage);
}

void AddStored(const char *name, const Damage &damage)
{
    AddRow(name, SomeText(), ZipMaker::Stored, damage);
}

void AddBoth(const char *name, const Damage &damage)
{
    AddDeflated(name, damage);
    AddStored(name, damage);
}

/// Adds a row in which @p field of both headers differs by @p difference.
void AddOff(const char *name, ZipField field, int difference)
{
    AddBoth(name, [field, difference](ZipMaker &zip) {
        zip.Set(app, field, quint32(int(zip.Get(app, field)) + difference));
    });
}

/// Adds a row in which @p field is @p value.
void AddLie(const char *name, ZipField field, quint32 value, ZipMaker::Headers headers)
{
    AddBoth(name, [=](ZipMaker &zip) { zip.Set(app, field, value, headers); });
}

void AddLyingSizes()
{
    AddOff("size one too small", ZipMaker::Size, -1);
    AddOff("size one too large", ZipMaker::Size, 1);
    AddLie("size 0", ZipMaker::Size, 0, ZipMaker::Both);
    AddLie("size 2 GiB less 1", ZipMaker::Size, 0x7fffffff, ZipMaker::Both);
    AddLie("size 2 GiB", ZipMaker::Size, 0x80000000, ZipMaker::Both);
    AddOff("packed size one too small", ZipMaker::PackedSize, -1);
    // A deflate stream marks its own end, so one more byte changes nothing.
    AddStored("packed size one too large", [](ZipMaker &zip) {
        zip.Set(app, ZipMaker::PackedSize, zip.Get(app, ZipMaker::PackedSize) + 1);
    });
    AddLie("packed size 0", ZipMaker::PackedSize, 0, ZipMaker::Both);
    AddLie("packed size up to the next entry's middle", ZipMaker::PackedSize,
           quint32(SomeText().size()) + 40, ZipMaker::Central);
    AddLie("packed size beyond the file", ZipMaker::PackedSize, 0x00100000, ZipMaker::Both);
    AddLie("packed size 2 GiB less 1", ZipMaker::PackedSize, 0x7fffffff, ZipMaker::Both);
    AddLie("packed size 2 GiB", ZipMaker::PackedSize, 0x80000000, ZipMaker::Both);
    AddLie("zip64 marker for the size", ZipMaker::Size, 0xffffffff, ZipMaker::Both);
    AddLie("zip64 marker for the packed size", ZipMaker::PackedSize, 0xffffffff, ZipMaker::Both);
    AddLie("zip64 marker for the offset", ZipMaker::HeaderOffset, 0xffffffff, ZipMaker::Central);
}

void AddLyingHeaders()
{
    AddOff("wrong checksum", ZipMaker::Crc32, 1);
    AddLie("checksum 0", ZipMaker::Crc32, 0, ZipMaker::Both);
    AddLie("encrypted", ZipMaker::Flags, 0x0801, ZipMaker::Both);
    AddLie("strongly encrypted", ZipMaker::Flags, 0x0841, ZipMaker::Both);
    AddLie("encrypted, says the directory", ZipMaker::Flags, 0x0801, ZipMaker::Central);
    for (const quint32 method : {1, 6, 9, 12, 14, 93, 95, 99, 65535}) {
        const QByteArray name = "method " + QByteArray::number(method);
        AddLie(name.constData(), ZipMaker::Method, method, ZipMaker::Both);
    }
    AddLie("unknown method, says the directory", ZipMaker::Method, 12, ZipMaker::Central);
    AddLie("unknown method, says the local header", ZipMaker::Method, 12, ZipMaker::Local);
    AddDeflated("the local header says stored",
                [](ZipMaker &zip) { zip.Set(app, ZipMaker::Method, 0, ZipMaker::Local); });
    AddDeflated("both headers say stored",
                [](ZipMaker &zip) { zip.Set(app, ZipMaker::Method, 0); });
    AddStored("both headers say deflated",
              [](ZipMaker &zip) { zip.Set(app, ZipMaker::Method, 8); });
    AddOff("offset next to the local header", ZipMaker::HeaderOffset, 1);
    AddLie("offset of another entry", ZipMaker::HeaderOffset, 0, ZipMaker::Central);
    AddLie("offset beyond the file", ZipMaker::HeaderOffset, 0x00100000, ZipMaker::Central);
    AddLie("offset 2 GiB", ZipMaker::HeaderOffset, 0x80000000, ZipMaker::Central);
    AddLie("offset shortly before 4 GiB", ZipMaker::HeaderOffset, 0xfffffff0, ZipMaker::Central);
    AddLie("name that reaches beyond the file", ZipMaker::NameSize, 0xffff, ZipMaker::Local);
}

void AddDamagedData()
{
    AddBoth("first byte", [](ZipMaker &zip) { zip.FlipDataBit(app, 0); });
    AddBoth("byte in the middle", [](ZipMaker &zip) {
        zip.FlipDataBit(app, int(zip.Get(app, ZipMaker::PackedSize)) / 2);
    });
    // The last byte of a deflate stream may have unused bits.
    AddBoth("byte near the end", [](ZipMaker &zip) {
        zip.FlipDataBit(app, int(zip.Get(app, ZipMaker::PackedSize)) - 4);
    });
}

/// Archives that fill the memory when an unpacker does not limit the size first.
void AddBombs()
{
    const Damage declareLittle = [](ZipMaker &zip) { zip.Set(app, ZipMaker::Size, 100); };
    AddRow("64 MiB from 64 KiB", QByteArray(64 << 20, '\0'), ZipMaker::Deflated, declareLittle);
    AddRow("34 MiB from more than 2 MiB", SomeNoise(2 << 20) + QByteArray(32 << 20, '\0'),
           ZipMaker::Deflated, declareLittle);
    AddRow("more than 2 MiB", SomeNoise(2 << 20), ZipMaker::Stored, declareLittle);
    AddRow("no more at all", QByteArray(), ZipMaker::Deflated,
           [](ZipMaker &zip) { zip.Set(app, ZipMaker::Size, 1 << 30); });
}

} // namespace

QByteArray SomeText()
{
    QByteArray text;
    for (int line = 0; line < 500; ++line)
        text += "line " + QByteArray::number(line * line) + '\n';
    return text;
}

QByteArray SomeNoise(int size)
{
    QByteArray noise(size, Qt::Uninitialized);
    quint32 state = 1;
    for (char &byte : noise) {
        state = state * 1664525 + 1013904223;
        byte = char(state >> 24);
    }
    return noise;
}

void AddThreeEntries(ZipMaker &zip)
{
    zip.AddFolder(QStringLiteral("pkg"));
    zip.AddFile(QStringLiteral("pkg/app.txt"), SomeText());
    zip.AddFile(QStringLiteral("pkg/after.txt"), "after");
}

void AddDamagedArchives()
{
    QTest::addColumn<QByteArray>("archive");
    AddLyingSizes();
    AddLyingHeaders();
    AddDamagedData();
    AddBombs();
}
