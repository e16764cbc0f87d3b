// SPDX-License-Identifier: MIT
#include "ui/releasenotes.h"

#include "ui/layoutcost.h"
#include "ui/markup.h"
#include "ui/plaintextlayout.h"

#include <QDebug>
#include <QTextCursor>

namespace
{

/// Processor time for everything that happens until the rich text is visible.
constexpr double kMaxSeconds = 0.5;

constexpr double kSecondsPerPixel = 50e-9;

/// Longer notes fit into the time limit only when most of them are images, and would be in memory
/// several times.
constexpr int kMaxMarkupLength = 2 * 1024 * 1024;

} // namespace

ReleaseNotesDocument::ReleaseNotesDocument(QObject *parent) : OfflineDocument(parent) {}

bool ReleaseNotesDocument::IsRichText(const QString &notes)
{
    return Qt::mightBeRichText(notes) && ReleaseNotesDocument(nullptr).SetMarkup(notes);
}

void ReleaseNotesDocument::SetNotes(const QString &notes)
{
    DrawPictures();
    const bool isMarkup = Qt::mightBeRichText(notes);
    if (isMarkup && SetMarkup(notes))
        return;
    if (isMarkup)
        qWarning() << "release notes shown as plain text";
    SetPlainText(*this, notes);
}

/// False when the markup is too expensive to show.
bool ReleaseNotesDocument::SetMarkup(const QString &notes)
{
    if (notes.size() > kMaxMarkupLength)
        return false;
    const Markup markup = ReadMarkup(notes, kMaxSeconds);
    if (markup.seconds > kMaxSeconds)
        return false;

    setUndoRedoEnabled(false);
    QTextCursor edit(this);
    edit.beginEditBlock();
    FillWith(markup.html);
    const double seconds =
        markup.seconds + DecodedPixels() * kSecondsPerPixel + LayoutSeconds(*this);
    const bool isCheap = seconds <= kMaxSeconds;
    if (!isCheap)
        clear();
    edit.endEditBlock();
    return isCheap;
}
