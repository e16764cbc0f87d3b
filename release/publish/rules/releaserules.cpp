// SPDX-License-Identifier: MIT
#include "release/publish/rules/releaserules.h"

#include "config/servicecontract.h"
#include "install/windowsnames.h"
#include "net/packagename.h"
#include "ui/releasenotes.h"

#include <QDir>
#include <QHash>
#include <QRegularExpression>
#include <QSet>
#include <QTextDocument>
#include <QVersionNumber>

#include <algorithm>

namespace
{

using ReleaseRules::Entry;
using ReleaseRules::IsAscii;
using ReleaseRules::Shown;
using ReleaseRules::WindowsObjection;

const QString kInstallerSuffix = QStringLiteral(".exe");

/// Checks one name. @p subject is the beginning of the messages.
Findings CheckName(const QString &name, const QString &path, const QString &subject)
{
    Findings findings;
    if (!IsAscii(name)) {
        findings.append({QStringLiteral("name-ascii"), path,
                         subject + QStringLiteral(" is not plain ASCII, and a machine with another "
                                                  "code page would get an empty file; rename it")});
    }
    const QString objection = WindowsObjection(name);
    if (!objection.isEmpty()) {
        findings.append({QStringLiteral("name-windows"), path,
                         QStringLiteral("%1 %2; rename it").arg(subject, objection)});
    }
    return findings;
}

/// Checks the name of any package. It becomes part of an address and the name of a file.
Findings CheckPackageName(const QString &name)
{
    const QString subject = QStringLiteral("the package's name \"%1\"").arg(Shown(name));
    Findings findings = CheckName(name, QString(), subject);
    for (const QChar character : {QLatin1Char('?'), QLatin1Char('#'), QLatin1Char('%')}) {
        if (name.contains(character)) {
            findings.append(
                {QStringLiteral("package-name"), QString(),
                 QStringLiteral(
                     "%1 contains \"%2\", which has a special meaning in an address; rename it")
                     .arg(subject)
                     .arg(character)});
        }
    }
    if (name.size() > ReleaseRules::MaxPathLength) {
        findings.append(
            {QStringLiteral("name-length"), QString(),
             QStringLiteral("%1 has %2 characters, but at most %3 are allowed; shorten it")
                 .arg(subject)
                 .arg(name.size())
                 .arg(ReleaseRules::MaxPathLength)});
    }
    // Everything else that the updater refuses.
    if (findings.isEmpty() && !IsUsablePackageName(name)) {
        findings.append(
            {QStringLiteral("package-name"), QString(),
             subject +
                 QStringLiteral(
                     " is refused by the updater; publish a .zip package or an .exe installer")});
    }
    return findings;
}

/// The part of a package's file name that consists of NAME and VERSION.
QString WithoutSuffix(const QString &packageFileName)
{
    for (const QString &suffix : {ReleaseRules::ZipSuffix, kInstallerSuffix}) {
        if (packageFileName.endsWith(suffix, Qt::CaseInsensitive))
            return packageFileName.chopped(suffix.size());
    }
    return QString();
}

QString LastPart(const QString &path)
{
    return path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
}

QString ParentOf(const QString &path)
{
    return path.left(qMax(0, path.lastIndexOf(QLatin1Char('/'))));
}

bool IsUpdaterProgram(const QString &path)
{
    return LastPart(path).compare(ReleaseRules::UpdaterProgram, Qt::CaseInsensitive) == 0;
}

Finding TooLong(const QString &topFolder, const Entry &entry)
{
    return {QStringLiteral("name-length"), entry.path,
            QStringLiteral("%1: the path has %2 characters in the package, but at most %3 are "
                           "allowed; shorten the names in it")
                .arg(Shown(entry.path))
                .arg(topFolder.size() + 1 + entry.path.size())
                .arg(ReleaseRules::MaxPathLength)};
}

Finding TooLarge(const Entry &entry)
{
    return {
        QStringLiteral("file-size"), entry.path,
        QStringLiteral("%1: the file has %2 bytes, but the updater accepts at most %3; split it")
            .arg(Shown(entry.path))
            .arg(entry.size)
            .arg(ReleaseRules::MaxSize)};
}

Finding CaseTwin(const QString &path, const QString &twin)
{
    const QString message =
        path == twin
            ? QStringLiteral("%1: there are two entries with this name; keep one of them")
                  .arg(Shown(path))
            : QStringLiteral("%1: Windows cannot distinguish it from \"%2\"; rename one of them")
                  .arg(Shown(path), Shown(twin));
    return {QStringLiteral("case-twin"), path, message};
}

Finding BeforeItsFolder(const QString &path)
{
    return {QStringLiteral("folder-order"), path,
            QStringLiteral("%1: its folder is not listed before it, and the updater would stop "
                           "there; create the package with \"publish zip\"")
                .arg(Shown(path))};
}

} // namespace

QString ReleaseRules::Shown(QString text)
{
    for (QChar &character : text) {
        if (!character.isPrint())
            character = QChar::ReplacementCharacter;
    }
    return text;
}

bool ReleaseRules::IsAscii(const QString &text)
{
    return std::all_of(text.cbegin(), text.cend(),
                       [](QChar character) { return character.unicode() < 0x80; });
}

QString ReleaseRules::WindowsObjection(const QString &name)
{
    if (WindowsNames::HasInvisibleCharacter(name))
        return QStringLiteral("contains an invisible control or formatting character");
    const auto forbidden = std::find_if(name.cbegin(), name.cend(), [](QChar character) {
        return WindowsNames::HasForbiddenCharacter(QString(character));
    });
    if (forbidden != name.cend()) {
        return QStringLiteral("contains \"%1\", which Windows does not allow in file names")
            .arg(*forbidden);
    }
    if (WindowsNames::AsKept(name) != name)
        return QStringLiteral("ends with a dot or a blank, which Windows removes");
    if (WindowsNames::IsDevice(name))
        return QStringLiteral("is a device name on Windows");
    return QString();
}

QString ReleaseRules::PackageFileName(const QString &name, const QString &version,
                                      const QString &suffix)
{
    return name + QLatin1Char('-') + version + suffix;
}

QString ReleaseRules::TopFolder(const QString &packageFileName)
{
    return packageFileName.left(packageFileName.indexOf(ZipSuffix));
}

Findings ReleaseRules::CheckVersion(const QString &version)
{
    // A folder of the tree is named after the version, so it must not be "..".
    static const QRegularExpression plain(
        QStringLiteral("\\A[._+-]*[A-Za-z0-9][A-Za-z0-9._+-]*\\z"));
    // In the service's log, "none" means that a check was offered nothing.
    if (version.compare(QLatin1String("none"), Qt::CaseInsensitive) == 0) {
        return {{QStringLiteral("version"), QString(),
                 QStringLiteral("the version \"%1\" means \"no offer\" in the service's log; "
                                "choose another one, such as 2.1.3")
                     .arg(version)}};
    }
    if (version.size() <= MaxVersionLength && plain.match(version).hasMatch())
        return {};
    return {{QStringLiteral("version"), QString(),
             QStringLiteral("the version \"%1\" does not consist of 1 to %2 letters, digits, "
                            "\".\", \"-\", \"_\" and \"+\", with at least one letter or digit; "
                            "write it as in the client's configuration, such as 2.1.3")
                 .arg(Shown(version.left(MaxVersionLength)))
                 .arg(MaxVersionLength)}};
}

QString ReleaseRules::VersionInName(const QString &packageFileName, const QString &likeName,
                                    const QString &likeVersion)
{
    const QString name = WithoutSuffix(packageFileName);
    QString prefix = WithoutSuffix(likeName);
    if (!likeVersion.isEmpty() && prefix.endsWith(likeVersion)) {
        prefix.chop(likeVersion.size());
        const QString rest = name.mid(prefix.size());
        // "Client-Setup-2.1.3" begins like "Client-2.1.3", but "Setup-2.1.3" is not its version.
        if (name.startsWith(prefix) && !rest.isEmpty() &&
            rest.at(0).isDigit() == likeVersion.at(0).isDigit() && CheckVersion(rest).isEmpty())
            return rest;
    }
    static const QRegularExpression version(QStringLiteral("-([0-9].*)\\z"));
    const QString found = version.match(name).captured(1);
    return CheckVersion(found).isEmpty() ? found : QString();
}

Findings ReleaseRules::CheckVersionLength(const QString &version, const QStringList &published)
{
    const auto longest = std::max_element(
        published.cbegin(), published.cend(),
        [](const QString &one, const QString &other) { return one.size() < other.size(); });
    if (longest == published.cend() || longest->size() - version.size() <= MaxShorterBy)
        return {};
    QString longer = version;
    while (longest->size() - longer.size() > MaxShorterBy)
        longer += QStringLiteral(".0");
    return {{QStringLiteral("shorter-version"), QString(),
             QStringLiteral(
                 "the version %1 is %2 characters shorter than %3, which was published before: on "
                 "machines where %3 was installed or silenced, this update would make "
                 "updateconfig.json unreadable, and the updater would never start the client "
                 "again; use a longer version such as %4, or pass --allow-shorter-version")
                 .arg(Shown(version))
                 .arg(longest->size() - version.size())
                 .arg(Shown(*longest), Shown(longer))}};
}

Findings ReleaseRules::CheckNotes(const QString &notes, const QString &language)
{
    const QString rule = QStringLiteral("notes");
    if (notes.trimmed().isEmpty()) {
        return {{rule, QString(),
                 QStringLiteral(
                     "the %1 notes are empty, so the prompt would be empty too; write what is new")
                     .arg(language)}};
    }
    if (notes.contains(ServiceContract::NotesSeparator)) {
        return {{rule, QString(),
                 QStringLiteral("the %1 notes contain \"&\", which separates the languages; write "
                                "\"and\" instead, and characters themselves instead of \"&name;\"")
                     .arg(language)}};
    }
    if (notes.contains(QChar::ReplacementCharacter) || notes.contains(QChar::Null)) {
        return {
            {rule, QString(),
             QStringLiteral("the %1 notes are not UTF-8 text; save them as UTF-8").arg(language)}};
    }
    return {};
}

Findings ReleaseRules::CheckUrlPrefix(const QString &prefix)
{
    static const QRegularExpression address(
        QStringLiteral("\\Ahttps?://[A-Za-z0-9.:\\[\\]-]+(?:/[A-Za-z0-9._~/-]*)?\\z"));
    if (prefix.isEmpty() || address.match(prefix).hasMatch())
        return {};
    return {
        {QStringLiteral("url-prefix"), QString(),
         QStringLiteral(
             "\"%1\" is not the beginning of an address; write it like https://updates.example.com")
             .arg(Shown(prefix))}};
}

Findings ReleaseRules::CheckZipName(const QString &packageFileName)
{
    Findings findings = CheckPackageName(packageFileName);
    const QString shown = Shown(packageFileName);
    if (!packageFileName.endsWith(ZipSuffix)) {
        findings.append({QStringLiteral("package-name"), QString(),
                         QStringLiteral("the package's name \"%1\" does not end with \"%2\"; "
                                        "rename it")
                             .arg(shown, ZipSuffix)});
        return findings;
    }
    const QString top = TopFolder(packageFileName);
    if (top.size() + ZipSuffix.size() != packageFileName.size()) {
        findings.append({QStringLiteral("package-name"), QString(),
                         QStringLiteral("the package's name \"%1\" contains \"%2\" before its end, "
                                        "and the updater would cut it off there; rename it")
                             .arg(shown, ZipSuffix)});
    }
    if (top.isEmpty() || top.startsWith(QLatin1Char('.'))) {
        findings.append({QStringLiteral("package-name"), QString(),
                         QStringLiteral("the package's name \"%1\" begins with a dot, which the "
                                        "updater removes when it unpacks; rename it")
                             .arg(shown)});
    }
    const QString objection = WindowsObjection(top);
    if (!objection.isEmpty() && WindowsObjection(packageFileName).isEmpty()) {
        findings.append({QStringLiteral("package-name"), QString(),
                         QStringLiteral("the package's folder \"%1\" %2; choose another name or "
                                        "version")
                             .arg(Shown(top), objection)});
    }
    return findings;
}

Findings ReleaseRules::CheckInstallerName(const QString &packageFileName)
{
    Findings findings = CheckPackageName(packageFileName);
    if (!packageFileName.endsWith(kInstallerSuffix, Qt::CaseInsensitive)) {
        findings.append({QStringLiteral("package-name"), QString(),
                         QStringLiteral("the installer's name \"%1\" does not end with \"%2\", and "
                                        "Windows would not start it; publish a program")
                             .arg(Shown(packageFileName), kInstallerSuffix)});
    }
    return findings;
}

Findings ReleaseRules::CheckPackageSize(qint64 size)
{
    if (size <= 0) {
        return {{QStringLiteral("package-size"), QString(),
                 QStringLiteral("the package is empty; publish one with contents")}};
    }
    if (size > MaxSize) {
        return {{QStringLiteral("package-size"), QString(),
                 QStringLiteral(
                     "the package has 2 GiB or more, but the updater reads its size as a 32-bit "
                     "number; leave files out, or publish an installer that downloads the rest")}};
    }
    return {};
}

Findings ReleaseRules::CheckEntries(const QString &topFolder, const QVector<Entry> &entries)
{
    Findings findings;
    if (entries.isEmpty()) {
        findings.append(
            {QStringLiteral("empty"), QString(),
             QStringLiteral(
                 "the client's folder is empty; name the folder that contains the new client")});
    }
    const int count = entries.size() + 1; // and the top folder
    if (count > MaxEntries) {
        findings.append({QStringLiteral("too-many-entries"), QString(),
                         QStringLiteral("there are %1 files and folders, but the updater can count "
                                        "only to %2; leave some out, or publish an installer")
                             .arg(count)
                             .arg(MaxEntries)});
    }

    QSet<QString> folders{QString()};
    QHash<QString, QString> firstOfName;
    for (const Entry &entry : entries) {
        findings += CheckName(LastPart(entry.path), entry.path,
                              Shown(entry.path) + QStringLiteral(": the name"));
        if (topFolder.size() + 1 + entry.path.size() > MaxPathLength)
            findings.append(TooLong(topFolder, entry));
        if (entry.size > MaxSize)
            findings.append(TooLarge(entry));
        if (!folders.contains(ParentOf(entry.path)))
            findings.append(BeforeItsFolder(entry.path));
        if (entry.isFolder)
            folders.insert(entry.path);

        QString &first = firstOfName[entry.path.toLower()];
        if (first.isNull())
            first = entry.path;
        else
            findings.append(CaseTwin(entry.path, first));
    }
    return findings;
}

Findings ReleaseRules::CheckUpdaterFolder(const QVector<Entry> &entries,
                                          const QString &updaterFolder)
{
    // Shells complete the names of folders with a slash.
    const QString folder =
        QDir::cleanPath(QString(updaterFolder).replace(QLatin1Char('\\'), QLatin1Char('/')));
    const auto found =
        std::find_if(entries.cbegin(), entries.cend(), [&folder](const Entry &entry) {
            return entry.path.compare(folder, Qt::CaseInsensitive) == 0 ||
                   IsUpdaterProgram(entry.path);
        });
    if (found == entries.cend())
        return {};
    const QString message =
        IsUpdaterProgram(found->path)
            ? QStringLiteral("\"%1\" is the updater's program; Windows does not overwrite a "
                             "running program, and the copy would stop there; leave it out with "
                             "--exclude, or pass --allow-updater")
            : QStringLiteral("\"%1\" is the updater's own folder; Windows does not overwrite a "
                             "running program, and the copy would stop there; leave it out, name "
                             "the updater's folder with --updater-folder, or pass --allow-updater");
    return {{QStringLiteral("updater-folder"), found->path, message.arg(Shown(found->path))}};
}

Findings ReleaseRules::WarnOfInstaller(const QString &path, const QByteArray &beginning)
{
    if (beginning.startsWith("MZ"))
        return {};
    return {{QStringLiteral("not-a-program"), QString(),
             QStringLiteral("%1 does not look like a Windows program; check that this is intended")
                 .arg(path)}};
}

Findings ReleaseRules::WarnOfOlderVersion(const QString &version, const QStringList &published)
{
    const QVersionNumber number = QVersionNumber::fromString(version).normalized();
    const QString *newest = nullptr;
    QVersionNumber newestNumber = number;
    for (const QString &other : published) {
        const QVersionNumber otherNumber = QVersionNumber::fromString(other).normalized();
        if (otherNumber > newestNumber) {
            newest = &other;
            newestNumber = otherNumber;
        }
    }
    if (newest == nullptr || version.isEmpty() || !version.at(0).isDigit())
        return {};
    return {
        {QStringLiteral("older-version"), QString(),
         QStringLiteral("the version %1 is older than %2, which was published before, and clients "
                        "that have %2 will be offered it too; check that this is intended")
             .arg(Shown(version), Shown(*newest))}};
}

Findings ReleaseRules::WarnOfEntries(const QString &topFolder, const QVector<Entry> &entries)
{
    Findings warnings;
    const auto isLong = [&topFolder](const Entry &entry) {
        return topFolder.size() + 1 + entry.path.size() > RoomyPathLength;
    };
    const auto firstLong = std::find_if(entries.cbegin(), entries.cend(), isLong);
    if (firstLong != entries.cend()) {
        warnings.append(
            {QStringLiteral("long-path"), firstLong->path,
             QStringLiteral("%1 paths are longer than %2 characters, such as %3; for a user with a "
                            "long name they may be too long for Windows to copy; shorten them")
                 .arg(std::count_if(firstLong, entries.cend(), isLong))
                 .arg(RoomyPathLength)
                 .arg(Shown(firstLong->path))});
    }
    return warnings;
}

Findings ReleaseRules::WarnOfNotes(const QString &notes, const QString &language)
{
    if (!Qt::mightBeRichText(notes) || ReleaseNotesDocument::IsRichText(notes))
        return {};
    return {
        {QStringLiteral("notes-plain"), QString(),
         QStringLiteral("the prompt shows the %1 notes as plain text, including the tags; shorten "
                        "them, or use smaller tables, fewer nested tables and smaller numbers")
             .arg(language)}};
}
