// SPDX-License-Identifier: MIT
#include "config/global.h"

#include "config/configcontract.h"

Global Global::instance;

bool Global::IsEnglish() const
{
    return language == ConfigContract::Language::English;
}

QString Global::ClientProgram() const
{
    return appPath + appName;
}

QString Global::ClientConfigFile() const
{
    return appPath + appConfigFile;
}
