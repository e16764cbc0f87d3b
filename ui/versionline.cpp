// SPDX-License-Identifier: MIT
#include "ui/versionline.h"

#include "config/global.h"

namespace
{

// In UTF-16 units. The service may send millions, which take a label minutes to lay out.
constexpr int kMaxShownVersion = 128;

QString ShownVersion(const QString &version)
{
    if (version.size() <= kMaxShownVersion)
        return version;
    const bool splitsPair = version.at(kMaxShownVersion - 1).isHighSurrogate();
    return version.left(splitsPair ? kMaxShownVersion - 1 : kMaxShownVersion) + QChar(0x2026);
}

} // namespace

QString VersionLine(const QString &sizeTemplate)
{
    const Global &global = Global::instance;
    const QString prefix =
        global.IsEnglish() ? QStringLiteral("Version V") : QStringLiteral("版本号V");
    const double megabytes = double(global.packageSize) * (1.0 / 1024) * (1.0 / 1024);
    return prefix + ShownVersion(global.latestVersion) + sizeTemplate.arg(megabytes, 0, 'f', 2);
}
