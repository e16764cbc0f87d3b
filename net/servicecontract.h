#pragma once

#include <QChar>
#include <QLatin1String>
#include <QString>

/**
 * The words of the update service's answer, in one place for the side that reads them and the side
 * that publishes them. Callable from every thread.
 */
namespace ServiceContract
{

inline const QLatin1String SuccessCode("000000");

/// Stands between the Chinese and the English release notes.
constexpr QLatin1Char NotesSeparator('&');

/// Keys of the answer.
namespace Key
{
inline const QLatin1String Code("code");
inline const QLatin1String Desc("desc");
inline const QLatin1String Biz("biz"); ///< the object that holds all keys below
inline const QLatin1String Id("id");
inline const QLatin1String Update("update");
inline const QLatin1String LatestVersion("latestVersion");
inline const QLatin1String LatestVersionUrl("latestVersionUrl");
inline const QLatin1String LatestVersionInfo("latestVersionInfo");
inline const QLatin1String Md5("md5");
inline const QLatin1String Sha1("sha1");
inline const QLatin1String PackageSize("packageSize");
inline const QLatin1String UpdateType("updateType");
} // namespace Key

/// The values of Key::Update.
namespace Mode
{
inline const QLatin1String NoUpdate("0");
inline const QLatin1String Optional("1");
inline const QLatin1String Forced("2");
} // namespace Mode

/**
 * The part of @p notes that a user of @p language is shown. The Chinese ones, first and as they
 * stand, are for exactly "zh"; everyone else gets the second part without white space around it: an
 * empty or unknown language has Chinese dialogs but English notes. Without a separator all of them.
 */
QString NotesInLanguage(const QString &notes, const QString &language);

} // namespace ServiceContract
