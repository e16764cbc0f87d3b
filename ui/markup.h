#pragma once

#include <QString>

/// Markup that is ready for Qt's parser.
struct Markup {
    /// Every '<' that begins no tag is written as "&lt;": it is shown, as browsers do, and the
    /// parser meets no tag that was not looked at.
    QString html;
    /// The processor time that the parser needs, estimated and rounded up.
    double seconds = 0;
};

/**
 * Reads @p notes tag by tag. Qt's parser needs time that grows with the square of how deep elements
 * lie in each other, or with its cube where a style sheet names them; and notes come from the
 * network. Stops as soon as the estimate exceeds @p maxSeconds; the markup is cut short then. Takes
 * time that grows with the length alone. Any thread.
 */
Markup ReadMarkup(const QString &notes, double maxSeconds);
