#include "config/global.h"

Global Global::instance;

const QString Global::NoRemindSwitch = QStringLiteral("-noremid");
const QString Global::ImmediatelySwitch = QStringLiteral("-immediately");

bool Global::IsEnglish() const
{
    return language == QLatin1String("en");
}

QString Global::ClientProgram() const
{
    return appPath + appName;
}

QString Global::ClientConfigFile() const
{
    return appPath + appConfigFile;
}

bool Global::HasForcingSwitch() const
{
    return cmdLineArgs.contains(NoRemindSwitch) || cmdLineArgs.contains(ImmediatelySwitch);
}
