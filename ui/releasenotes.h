// SPDX-License-Identifier: MIT
#pragma once

#include "ui/offlinedocument.h"

#include <QString>

/// The release notes, as rich text that loads nothing or as plain text. GUI thread.
class ReleaseNotesDocument : public OfflineDocument
{
    Q_OBJECT

public:
    explicit ReleaseNotesDocument(QObject *parent);

    /// True when SetNotes() would show @p notes as rich text. Needs no window system; any thread.
    static bool IsRichText(const QString &notes);

    /**
     * Replaces the contents with @p notes: as rich text when they look like markup, otherwise as
     * plain text. Markup that would cost Qt more than half a second is shown as plain text with its
     * tags, and a warning is logged.
     */
    void SetNotes(const QString &notes);

private:
    bool SetMarkup(const QString &notes);
};
