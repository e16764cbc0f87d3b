// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/// Markup that is ready for Qt's parser.
struct Markup {
    /// Every '<' that does not begin a tag is written as "&lt;". So it is shown, as in browsers,
    /// and the parser sees no tag that was not examined.
    QString html;
    /// The estimated processor time of the parser, rounded up.
    double seconds = 0;
};

/**
 * Reads @p notes tag by tag and estimates the cost of parsing them. The time of Qt's parser grows
 * with the square of the nesting depth, or with its cube for elements that a style sheet names, and
 * the notes come from the network. Stops as soon as the estimate exceeds @p maxSeconds; the markup
 * is incomplete then. The time of this function grows only linearly with the length. Any thread.
 */
Markup ReadMarkup(const QString &notes, double maxSeconds);
