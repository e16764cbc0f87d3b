// SPDX-License-Identifier: MIT
#include "net/packagename.h"

#include "install/windowsnames.h"

namespace
{

/// In UTF-16 code units; the limit of the file systems of Windows.
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
    // A name of only dots and blanks is the folder itself or its parent.
    return name.size() <= kMaxNameLength && !WindowsNames::AsKept(name).isEmpty() &&
           !WindowsNames::IsDevice(name) && !WindowsNames::HasForbiddenCharacter(name) &&
           !WindowsNames::HasInvisibleCharacter(name) &&
           !WindowsNames::RunsInCommandInterpreter(name);
}
