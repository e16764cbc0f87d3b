#include "ui/versionline.h"

#include "config/global.h"

QString VersionLine(const QString &sizeTemplate)
{
    const Global &global = Global::instance;
    const QString prefix =
        global.IsEnglish() ? QStringLiteral("Version V") : QStringLiteral("版本号V");
    const double megabytes = double(global.packageSize) * (1.0 / 1024) * (1.0 / 1024);
    return prefix + global.latestVersion + sizeTemplate.arg(megabytes, 0, 'f', 2);
}
