// SPDX-License-Identifier: MIT
#pragma once

#include "install/zipformat.h"
#include "release/publish/base/findings.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>
#include <QtGlobal>

#include <limits>

/**
 * The rules that a release must follow so that every updater can install it. Pure functions on
 * names and texts. No findings means that the rule is followed. Callable from every thread.
 */
namespace ReleaseRules
{

/// The updater counts entries in 16 bits.
constexpr int MaxEntries = ZipFormat::MaxEntries;

/// The maximum length of a path in the package, in characters.
constexpr int MaxPathLength = 240;

/// Longer paths, in characters, may not fit below the download folder of a user with a long name.
constexpr int RoomyPathLength = 190;

/// The maximum size in bytes of the package, which the updater reads as a 32-bit integer, and of
/// each file in it.
constexpr qint64 MaxSize = std::numeric_limits<qint32>::max();

/// In characters.
constexpr int MaxVersionLength = 64;

/// How many characters shorter than an earlier version a version may be.
constexpr int MaxShorterBy = 1;

const inline QString ZipSuffix = QStringLiteral(".zip");

const inline QString UpdaterProgram = QStringLiteral("AutoUpdate.exe");

/// A file or folder of a package.
struct Entry {
    QString path; ///< relative to the top folder, with forward slashes and no trailing one
    bool isFolder = false;
    qint64 size = 0; ///< in bytes, uncompressed; 0 for a folder
};

/// @p text for a message: characters that would break or forge a line are replaced.
QString Shown(QString text);

bool IsAscii(const QString &text);

/// Why Windows cannot have a file or folder called @p name, or why its users would misread the
/// name, as the end of a sentence about it; empty when there is no objection.
QString WindowsObjection(const QString &name);

/// The file name of a zip package or installer, such as "Client-2.1.3.zip".
QString PackageFileName(const QString &name, const QString &version, const QString &suffix);

/// The only folder at the top level of a package, which the updater copies from.
QString TopFolder(const QString &packageFileName);

/**
 * The version in the file name of a package in the tree; empty when none is recognized. Packages
 * that are named like @p likeName, the package of version @p likeVersion, are recognized in any
 * form; others must be called NAME-VERSION, with a version that begins with a digit.
 */
QString VersionInName(const QString &packageFileName, const QString &likeName,
                      const QString &likeVersion);

Findings CheckVersion(const QString &version);

/**
 * Refuses @p version when it is at least two characters shorter than the longest of @p published.
 * The updater overwrites updateconfig.json without truncating it: the rest of the longer text, with
 * a brace, would remain, and the file could not be read any more. One character is harmless,
 * because only a line break remains.
 */
Findings CheckVersionLength(const QString &version, const QStringList &published);

/// @p language is "Chinese" or "English" and appears in the findings.
Findings CheckNotes(const QString &notes, const QString &language);

/// @p prefix is the part of the announced address before "/packages/"; it may be empty.
Findings CheckUrlPrefix(const QString &prefix);

Findings CheckZipName(const QString &packageFileName);
Findings CheckInstallerName(const QString &packageFileName);

/// @p size is that of the whole package, in bytes.
Findings CheckPackageSize(qint64 size);

/// @p entries are in the order of the package, without the top folder.
Findings CheckEntries(const QString &topFolder, const QVector<Entry> &entries);

/**
 * Refuses an updater among @p entries: the folder @p updaterFolder, or its program in any folder.
 * Letter case is ignored. At most one finding.
 */
Findings CheckUpdaterFolder(const QVector<Entry> &entries, const QString &updaterFolder);

/// How many bytes at the beginning of a file tell whether it is a program.
constexpr int InstallerBeginning = 2;

/// Warns when the installer @p path does not look like a program. @p beginning are its first bytes.
Findings WarnOfInstaller(const QString &path, const QByteArray &beginning);

/// Warns when @p version is older than the newest of @p published. Versions that do not begin with
/// a number are not compared.
Findings WarnOfOlderVersion(const QString &version, const QStringList &published);

/// Warns of paths that are allowed, but may be too long for some users.
Findings WarnOfEntries(const QString &topFolder, const QVector<Entry> &entries);

/// @p notes are those of one language.
Findings WarnOfNotes(const QString &notes, const QString &language);

} // namespace ReleaseRules
