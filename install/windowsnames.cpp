#include "install/windowsnames.h"

#include <QRegularExpression>
#include <QVector>

#include <algorithm>

namespace
{

bool IsInvisible(uint character)
{
    const QChar::Category category = QChar::category(character);
    return category == QChar::Other_Control || category == QChar::Other_Format;
}

} // namespace

bool WindowsNames::IsDevice(const QString &name)
{
    // A device whatever follows the first dot, and whatever blanks stand before it. Windows counts
    // the superscript digits among the digits.
    static const QRegularExpression devices(
        QStringLiteral(
            "\\A(?:con|prn|aux|nul|conin\\$|conout\\$|(?:com|lpt)[0-9¹²³]) *(?:\\.|\\z)"),
        QRegularExpression::CaseInsensitiveOption);
    return devices.match(name).hasMatch();
}

bool WindowsNames::HasForbiddenCharacter(const QString &name)
{
    static const QRegularExpression forbidden(QStringLiteral("[<>:\"/\\\\|?*]"));
    return name.contains(forbidden);
}

bool WindowsNames::HasInvisibleCharacter(const QString &name)
{
    const QVector<uint> characters = name.toUcs4();
    return std::any_of(characters.cbegin(), characters.cend(), IsInvisible);
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
