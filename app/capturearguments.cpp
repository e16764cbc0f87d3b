// SPDX-License-Identifier: MIT
#include "app/capturearguments.h"

#include "config/global.h"

#include <QDebug>

void CaptureArguments(int argc, char *argv[])
{
    for (int i = 1; i < argc; ++i) {
        const QString argument = QString::fromUtf8(argv[i]);
        Global::instance.cmdLineArgs.append(argument);
        qInfo() << "cmd line parameters :" << argument;
    }
}
