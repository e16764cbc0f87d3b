// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "install/platform.h"

#include <QDebug>

quint64 Global::GetDiskFreeBytes(const QString &path) const
{
    const Platform::FreeSpace space = Platform::VolumeFreeSpace(path);
    if (!space.ok) {
        qDebug() << "Call to GetDiskFreeSpaceEx() failed:" << space.errorCode;
        return 0;
    }
    return space.bytes;
}
