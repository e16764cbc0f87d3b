#include "net/servicecontract.h"

#include <QStringList>

QString ServiceContract::NotesInLanguage(const QString &notes, const QString &language)
{
    if (!notes.contains(NotesSeparator))
        return notes;
    const QStringList languages = notes.split(NotesSeparator);
    return language == QLatin1String("zh") ? languages.at(0) : languages.at(1).trimmed();
}
