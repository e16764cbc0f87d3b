// SPDX-License-Identifier: MIT
#include "release/publish/base/cannotwrite.h"

QString WriteErrorText(const QFileDevice &file)
{
    // A full disk takes part of the data, which Qt does not report as an error.
    return file.error() == QFileDevice::NoError ? QStringLiteral("the disk is full")
                                                : file.errorString();
}

Finding CannotWrite(const QString &path, const QString &reason, const QString &advice)
{
    return {QStringLiteral("unwritable"), QString(),
            QStringLiteral("%1: %2; %3").arg(path, reason, advice)};
}

Finding CannotWrite(const QFileDevice &file)
{
    return CannotWrite(file.fileName(), WriteErrorText(file));
}
