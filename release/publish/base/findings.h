// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVector>

#include <optional>

/// A reason to refuse a command, or a warning.
struct Finding {
    QString rule;    ///< an identifier for scripts that never changes, such as "name-ascii"
    QString path;    ///< the file or folder it is about, empty when there is none
    QString message; ///< one line: what is wrong and, after a semicolon, how to fix it
};

using Findings = QVector<Finding>;

/// Why a step failed; empty when it succeeded.
using Failure = std::optional<Finding>;

/// The user has interrupted the command.
inline Finding Interrupted()
{
    return {QStringLiteral("interrupted"), QString(),
            QStringLiteral("interrupted; run the command again")};
}
