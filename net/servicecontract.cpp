#include "net/servicecontract.h"

QString ServiceContract::NotesInLanguage(const QString &notes, const QString &language)
{
    // Found by position: a list of its parts would take many times what notes made of separators
    // do.
    const int first = notes.indexOf(NotesSeparator);
    if (first < 0)
        return notes;
    if (language == QLatin1String("zh"))
        return notes.left(first);
    const int second = notes.indexOf(NotesSeparator, first + 1);
    return notes.mid(first + 1, second < 0 ? -1 : second - first - 1).trimmed();
}
