#pragma once

#include <QString>
#include <QVector>

#include <optional>

/// One thing that keeps something from being published, or that its publisher should know.
struct Finding {
    QString rule; ///< a short word that never changes, for scripts, such as "name-ascii"
    QString path; ///< the file or folder in the client's folder, or empty when it is none of them
    QString message; ///< one line: what is wrong and, behind a semicolon, how to mend it
};

using Findings = QVector<Finding>;

/// What made a step fail; nothing when it succeeded.
using Failure = std::optional<Finding>;

/// The user has asked to end.
inline Finding Interrupted()
{
    return {QStringLiteral("interrupted"), QString(),
            QStringLiteral("interrupted; run it again when it suits")};
}
