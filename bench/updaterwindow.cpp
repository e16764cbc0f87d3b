// SPDX-License-Identifier: MIT
#include "bench/updaterwindow.h"

#include "tests/support/windowserver.h"

QString UpdaterWindow()
{
    return VisibleWindows(QStringLiteral("App Update")).first();
}
