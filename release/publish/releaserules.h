#pragma once

#include "release/publish/findings.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>
#include <QtGlobal>

#include <limits>

/**
 * What a release has to keep so that every updater on every machine can install it. Pure functions:
 * they look at names and texts only. No findings is good. Callable from every thread.
 */
namespace ReleaseRules
{

/// The updater counts entries in 16 bits.
constexpr int MaxEntries = 65535;

/// Of a path in the package, in characters.
constexpr int MaxPathLength = 240;

/// A longer path may not fit below the download folder of a user with a long name. In characters.
constexpr int RoomyPathLength = 190;

/// In bytes, of the package, whose size the updater reads as a 32-bit integer, and of each file in
/// it.
constexpr qint64 MaxSize = std::numeric_limits<qint32>::max();

/// In characters.
constexpr int MaxVersionLength = 64;

/// By how many characters a version may be shorter than one that was published before.
constexpr int MaxShorterBy = 1;

const inline QString ZipSuffix = QStringLiteral(".zip");

/// A file or folder of a package.
struct Entry {
    QString path; ///< below the package's top folder, with forward slashes and none at its end
    bool isFolder = false;
    qint64 size = 0; ///< in bytes, unpacked; 0 for a folder
};

/// As lines show a name: characters that would break or forge a line are replaced.
QString Shown(QString text);

/// The file name of the zip package or installer called @p name: as "Client-2.1.3.zip".
QString PackageFileName(const QString &name, const QString &version, const QString &suffix);

/// The one folder at the top of a package: what the updater copies from after unpacking.
QString TopFolder(const QString &packageFileName);

/**
 * The version in the file name of a package in the tree; empty when none is recognized. Packages
 * called like @p likeName, the package of version @p likeVersion, are recognized whatever their
 * name; others have to be called NAME-VERSION, the version beginning with a digit.
 */
QString VersionInName(const QString &packageFileName, const QString &likeName,
                      const QString &likeVersion);

Findings CheckVersion(const QString &version);

/**
 * Refuses @p version when it is at least two characters shorter than the longest of @p published.
 * The updater writes versions over one another in updateconfig.json and never shortens the file: of
 * the longer text a brace would remain, and the file could not be read again. One character less is
 * harmless, because only a line break remains.
 */
Findings CheckVersionLength(const QString &version, const QStringList &published);

/// @p language stands in the findings: "Chinese" or "English".
Findings CheckNotes(const QString &notes, const QString &language);

/// What precedes "/packages/" in the announced address; empty is good.
Findings CheckUrlPrefix(const QString &prefix);

Findings CheckZipName(const QString &packageFileName);
Findings CheckInstallerName(const QString &packageFileName);

/// Size in bytes of a whole package.
Findings CheckPackageSize(qint64 size);

/// @p entries without the top folder, in the order of the package.
Findings CheckEntries(const QString &topFolder, const QVector<Entry> &entries);

/**
 * Whether the updater is among @p entries: its folder, which is @p updaterFolder or any folder with
 * the updater's program and configuration in it. One finding at the most.
 */
Findings CheckUpdaterFolder(const QVector<Entry> &entries, const QString &updaterFolder);

/// In bytes; as much of an installer tells whether it is one.
constexpr int InstallerBeginning = 2;

/// Whether the installer @p path is a program, judged by @p beginning, its first bytes.
Findings WarnOfInstaller(const QString &path, const QByteArray &beginning);

/// Of a version before the newest of @p published; versions that do not begin with a number are not
/// compared.
Findings WarnOfOlderVersion(const QString &version, const QStringList &published);

/// What is allowed, but may not be what the publisher means.
Findings WarnOfEntries(const QString &topFolder, const QVector<Entry> &entries);

/// @p notes of one language.
Findings WarnOfNotes(const QString &notes, const QString &language);

} // namespace ReleaseRules
