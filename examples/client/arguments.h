// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

#include <optional>

/// What a start asks for.
struct StartArguments {
    QString profile; ///< empty for the current one
    QString meeting; ///< what follows the "://" of a meeting link; empty without a link
};

/**
 * Reads the arguments that the updater passes on. Nothing when one of them is unknown or not
 * harmless: then none counts, because a web page may have written all of them.
 */
std::optional<StartArguments> ReadArguments(const QStringList &arguments);
