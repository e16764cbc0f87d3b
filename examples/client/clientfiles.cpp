// SPDX-License-Identifier: MIT
#include "examples/client/clientfiles.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QSaveFile>

namespace
{

// Names and contents that the updater knows.
const QLatin1String kDataFolder("/AppData/Roaming/norvaneAssistant");
const QLatin1String kVersionFile("/~version/version.json");
const QLatin1String kClientKey("client");
const QLatin1String kVersionKey("version");
const QLatin1String kLanguageFile("/language.txt");
constexpr char kEnglish[] = "en";
constexpr char kChinese[] = "zh";
const QLatin1String kNotesFile("/update.log");
const QLatin1String kMarkerFile("/isShowUpdataInfo.txt");
constexpr char kUnseen[] = "1";

// The client's own.
const QLatin1String kSessionFile("/session.json");
const QLatin1String kMeetingKey("meeting");
const QLatin1String kDraftKey("draft");

/// Empty for a file that cannot be read.
QByteArray Read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool Replace(const QString &path, const QByteArray &content)
{
    // Writes to a second file and renames it.
    QSaveFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size() &&
           file.commit();
}

} // namespace

QString ClientFiles::DataFolder()
{
    const QString folder = QDir::homePath() + kDataFolder;
    QDir().mkpath(folder);
    return folder;
}

void ClientFiles::RemoveUnfinished()
{
    QDir folder(DataFolder());
    for (const QLatin1String &file : {kLanguageFile, kSessionFile}) {
        // QSaveFile names the second file like this.
        const QString pattern = QString(file).mid(1) + QLatin1String(".??????");
        for (const QString &name : folder.entryList({pattern}, QDir::Files))
            folder.remove(name);
    }
}

QString ClientFiles::Version()
{
    const QByteArray json = Read(QCoreApplication::applicationDirPath() + kVersionFile);
    const QJsonObject client = QJsonDocument::fromJson(json).object().value(kClientKey).toObject();
    return client.value(kVersionKey).toString();
}

bool ClientFiles::IsEnglish()
{
    const QString path = DataFolder() + kLanguageFile;
    if (QFile::exists(path))
        return Read(path).trimmed() == kEnglish;
    return QLocale().language() != QLocale::Chinese;
}

bool ClientFiles::SetEnglish(bool english)
{
    return Replace(DataFolder() + kLanguageFile, english ? kEnglish : kChinese);
}

QString ClientFiles::UnseenNotes()
{
    if (Read(DataFolder() + kMarkerFile) != kUnseen)
        return QString();
    return QString::fromUtf8(Read(DataFolder() + kNotesFile));
}

bool ClientFiles::MarkNotesSeen()
{
    return QFile::remove(DataFolder() + kMarkerFile);
}

ClientFiles::Session ClientFiles::ReadSession()
{
    const QJsonObject saved = QJsonDocument::fromJson(Read(DataFolder() + kSessionFile)).object();
    return {saved.value(kMeetingKey).toString(), saved.value(kDraftKey).toString()};
}

bool ClientFiles::SaveSession(const Session &session)
{
    const QJsonObject saved{{kMeetingKey, session.meeting}, {kDraftKey, session.draft}};
    return Replace(DataFolder() + kSessionFile, QJsonDocument(saved).toJson());
}
