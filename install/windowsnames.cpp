// SPDX-License-Identifier: MIT
#include "install/windowsnames.h"

#include <QStringList>

#include <algorithm>

namespace
{

bool IsInvisible(uint character)
{
    const QChar::Category category = QChar::category(character);
    return category == QChar::Other_Control || category == QChar::Other_Format ||
           category == QChar::Other_Surrogate;
}

/// "COM" or "LPT" and one digit. Windows counts the superscript ones among the digits.
bool IsPort(const QString &name)
{
    return name.size() == 4 &&
           (name.startsWith(QLatin1String("COM")) || name.startsWith(QLatin1String("LPT"))) &&
           QStringLiteral("0123456789¹²³").contains(name.at(3));
}

} // namespace

// No regular expressions here: they do not match in a text with half a surrogate pair, which the
// answer to the check may contain.

bool WindowsNames::IsDevice(const QString &name)
{
    static const QStringList devices{QStringLiteral("CON"),    QStringLiteral("PRN"),
                                     QStringLiteral("AUX"),    QStringLiteral("NUL"),
                                     QStringLiteral("CONIN$"), QStringLiteral("CONOUT$")};
    // Windows ignores everything after the first dot, and blanks before that dot.
    const QString base = AsKept(name.section(QLatin1Char('.'), 0, 0)).toUpper();
    return devices.contains(base) || IsPort(base);
}

bool WindowsNames::HasForbiddenCharacter(const QString &name)
{
    return std::any_of(name.cbegin(), name.cend(), [](QChar character) {
        return QStringLiteral("<>:\"/\\|?*").contains(character);
    });
}

bool WindowsNames::HasInvisibleCharacter(const QString &name)
{
    // QString::toUcs4() cannot be used: it replaces half a surrogate pair.
    for (int index = 0; index < name.size(); ++index) {
        uint character = name.at(index).unicode();
        if (QChar::isHighSurrogate(character) && index + 1 < name.size() &&
            name.at(index + 1).isLowSurrogate())
            character = QChar::surrogateToUcs4(ushort(character), name.at(++index).unicode());
        if (IsInvisible(character))
            return true;
    }
    return false;
}

QString WindowsNames::AsKept(const QString &name)
{
    int length = name.size();
    while (length > 0 &&
           (name.at(length - 1) == QLatin1Char('.') || name.at(length - 1) == QLatin1Char(' ')))
        --length;
    return name.left(length);
}

bool WindowsNames::RunsInCommandInterpreter(const QString &name)
{
    const QString kept = AsKept(name);
    return kept.endsWith(QLatin1String(".bat"), Qt::CaseInsensitive) ||
           kept.endsWith(QLatin1String(".cmd"), Qt::CaseInsensitive);
}
