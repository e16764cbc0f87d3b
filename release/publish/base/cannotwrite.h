// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/findings.h"

#include <QFileDevice>
#include <QString>

/// Why the last write to @p file failed.
QString WriteErrorText(const QFileDevice &file);

/// The refusal of a command that cannot write @p path. The message is "PATH: REASON; ADVICE".
Finding CannotWrite(
    const QString &path, const QString &reason,
    const QString &advice = QStringLiteral("free some disk space and check the permissions"));

/// The same for a file, with the reason of its last error.
Finding CannotWrite(const QFileDevice &file);
