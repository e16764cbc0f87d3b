// SPDX-License-Identifier: MIT
#include "config/servicecontract.h"

#include "config/configcontract.h"

QString ServiceContract::NotesInLanguage(const QString &notes, const QString &language)
{
    // Not split(): for notes that consist of separators, the list of parts would take many times
    // the memory of the notes.
    const int first = notes.indexOf(NotesSeparator);
    if (first < 0)
        return notes;
    if (language == ConfigContract::Language::Chinese)
        return notes.left(first);
    const int second = notes.indexOf(NotesSeparator, first + 1);
    return notes.mid(first + 1, second < 0 ? -1 : second - first - 1).trimmed();
}
