// SPDX-License-Identifier: MIT
#pragma once

#include <QChar>
#include <QLatin1String>
#include <QString>

/**
 * The words and values of the update service's answer, shared by the updater, which reads them, and
 * the publisher's tool, which writes them. Callable from every thread.
 */
namespace ServiceContract
{

inline const QLatin1String SuccessCode("000000");

/// Separates the Chinese release notes from the English ones.
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

/// The values of Key::Update. The prompt treats any other value as forced too, but closing its
/// window ends the program only for Forced.
namespace Mode
{
inline const QLatin1String NoUpdate("0");
inline const QLatin1String Optional("1");
inline const QLatin1String Forced("2");
} // namespace Mode

/// The values of Key::UpdateType that have a meaning.
enum PackageKind { InstallerPackage = 0, ZipPackage = 1 };

/**
 * The part of @p notes that is shown to a user of @p language. Exactly "zh" gets the first part,
 * the Chinese notes, unchanged. Every other language gets the second part, trimmed; so an empty or
 * unknown language has Chinese dialogs but English notes. Notes without a separator are returned
 * unchanged.
 */
QString NotesInLanguage(const QString &notes, const QString &language);

} // namespace ServiceContract
