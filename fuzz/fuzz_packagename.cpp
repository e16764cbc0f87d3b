// SPDX-License-Identifier: MIT
// The announced address of a package, and the file name that is taken from it.

#include "fuzz/support/require.h"
#include "net/packagename.h"

#include <QByteArray>
#include <QDir>
#include <QFileInfo>
#include <QString>
#include <QStringList>
#include <QVector>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace
{

const QString kFolder = QStringLiteral("/home/user/AppData/Local/Client");

struct Range {
    uint first;
    uint last;
};

/// The characters of Unicode's categories Cc and Cf, up to Unicode 13.
constexpr std::array<Range, 21> kUnseen{
    {{0x0000, 0x001f},   {0x007f, 0x009f},   {0x00ad, 0x00ad},   {0x0600, 0x0605},
     {0x061c, 0x061c},   {0x06dd, 0x06dd},   {0x070f, 0x070f},   {0x08e2, 0x08e2},
     {0x180e, 0x180e},   {0x200b, 0x200f},   {0x202a, 0x202e},   {0x2060, 0x2064},
     {0x2066, 0x206f},   {0xfeff, 0xfeff},   {0xfff9, 0xfffb},   {0x110bd, 0x110bd},
     {0x13430, 0x13438}, {0x1bca0, 0x1bca3}, {0x1d173, 0x1d17a}, {0xe0001, 0xe0001},
     {0xe0020, 0xe007f}}};

bool IsUnseen(uint character)
{
    return std::any_of(kUnseen.cbegin(), kUnseen.cend(), [character](const Range &range) {
        return character >= range.first && character <= range.last;
    });
}

QString WithoutTrailing(QString text, const QString &characters)
{
    while (!text.isEmpty() && characters.contains(text.at(text.size() - 1)))
        text.chop(1);
    return text;
}

/// The name of the file that Windows opens: without dots and blanks at the end.
QString AsWindowsKeepsIt(const QString &name)
{
    return WithoutTrailing(name, QStringLiteral(". "));
}

const QStringList &Devices()
{
    static const QStringList devices = [] {
        QStringList names =
            QStringLiteral("CON PRN AUX NUL CONIN$ CONOUT$").split(QLatin1Char(' '));
        for (const QChar digit : QStringLiteral("0123456789\u00b9\u00b2\u00b3"))
            names << QStringLiteral("COM") + digit << QStringLiteral("LPT") + digit;
        return names;
    }();
    return devices;
}

bool IsDeviceName(const QString &name)
{
    const QString stem = name.left(name.indexOf(QLatin1Char('.')));
    return Devices().contains(WithoutTrailing(stem, QStringLiteral(" ")).toUpper());
}

bool IsBatchFile(const QString &name)
{
    const QString extension = AsWindowsKeepsIt(name).right(4).toLower();
    return extension == QLatin1String(".bat") || extension == QLatin1String(".cmd");
}

bool StaysDirectlyIn(const QString &folder, QString name)
{
    name.replace(QLatin1Char('\\'), QLatin1Char('/'));
    // A colon follows a drive or precedes the name of a stream in a file.
    if (name.contains(QLatin1Char(':')))
        return false;
    const QString path = QDir::cleanPath(folder + QLatin1Char('/') + name);
    return path != folder && QFileInfo(path).path() == folder;
}

/// Letters, digits and dots, as vendors name their packages.
bool IsPlainPackageName(const QString &name)
{
    const auto isPlain = [](QChar character) {
        const ushort code = character.unicode();
        return (code >= 'a' && code <= 'z') || (code >= 'A' && code <= 'Z') ||
               (code >= '0' && code <= '9') || code == '.';
    };
    return name.size() <= 255 && std::all_of(name.cbegin(), name.cend(), isPlain) &&
           (name.endsWith(QLatin1String(".zip")) || name.endsWith(QLatin1String(".exe")));
}

void RequireHarmless(const QString &name)
{
    Require(StaysDirectlyIn(kFolder, name), "the package is in its folder", name);
    Require(StaysDirectlyIn(kFolder, AsWindowsKeepsIt(name)),
            "the package is in its folder on Windows", name);
    Require(!IsDeviceName(name), "the package is no device", name);
    const QVector<uint> characters = name.toUcs4();
    Require(std::none_of(characters.cbegin(), characters.cend(), IsUnseen),
            "every character of the name is visible", name);
    Require(!IsBatchFile(name), "no package is a batch file", name);
}

void RequireRightName(const QString &address)
{
    const QString name = PackageFileName(address);
    Require(!name.contains(QLatin1Char('/')), "a file name has no slash", name);
    Require(address == name || address.endsWith(QLatin1Char('/') + name),
            "the name is what follows the last slash", name);
    if (name.isEmpty())
        Require(IsUsablePackageName(name), "an empty name is usable: opening the file fails later");
    else if (IsUsablePackageName(name))
        RequireHarmless(name);
    else
        Require(!IsPlainPackageName(name) || IsDeviceName(name), "a plain name is usable", name);
    const QString extension = name.mid((name + QLatin1Char('.')).indexOf(QLatin1Char('.')));
    for (const QString &device : Devices())
        Require(!IsUsablePackageName(device + extension) &&
                    !IsUsablePackageName(device.toLower() + extension),
                "a device name is one with any extension", extension);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    RequireRightName(QString::fromUtf8(reinterpret_cast<const char *>(data), int(size)));
    // JSON's escapes allow any sequence of 16-bit units, including unpaired surrogates.
    QString units;
    for (size_t i = 0; i + 1 < size; i += 2)
        units.append(QChar(data[i], data[i + 1]));
    RequireRightName(units);
    return 0;
}
