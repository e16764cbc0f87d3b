#include "net/packagename.h"

#include "install/windowsnames.h"

namespace
{

/// In UTF-16 code units: the most that the file systems of Windows hold.
constexpr int kMaxNameLength = 255;

} // namespace

QString PackageFileName(const QString &latestVersionUrl)
{
    return latestVersionUrl.mid(latestVersionUrl.lastIndexOf(QLatin1Char('/')) + 1);
}

bool IsUsablePackageName(const QString &name)
{
    if (name.isEmpty())
        return true;
    // Nothing but dots and blanks is the folder, or the one above it.
    return name.size() <= kMaxNameLength && !WindowsNames::AsKept(name).isEmpty() &&
           !WindowsNames::IsDevice(name) && !WindowsNames::HasForbiddenCharacter(name) &&
           !WindowsNames::HasInvisibleCharacter(name) &&
           !WindowsNames::RunsInCommandInterpreter(name);
}
