#include "release/publish/releaserules.h"

#include "install/windowsnames.h"
#include "net/packagename.h"
#include "net/servicecontract.h"
#include "ui/releasenotes.h"

#include <QHash>
#include <QRegularExpression>
#include <QSet>
#include <QTextDocument>
#include <QVersionNumber>

#include <algorithm>

namespace
{

using ReleaseRules::Entry;
using ReleaseRules::Shown;

const QString kInstallerSuffix = QStringLiteral(".exe");
const QString kUpdaterProgram = QStringLiteral("AutoUpdate.exe");
const QString kUpdaterConfiguration = QStringLiteral("updateconfig.json");

bool IsAscii(const QString &text)
{
    return std::all_of(text.cbegin(), text.cend(),
                       [](QChar character) { return character.unicode() < 0x80; });
}

/// What keeps Windows from holding a file or folder of this name, or its users from seeing what it
/// is; empty when nothing does.
QString WindowsObjection(const QString &name)
{
    if (WindowsNames::HasInvisibleCharacter(name))
        return QStringLiteral("contains a control or formatting character, which cannot be seen");
    const auto forbidden = std::find_if(name.cbegin(), name.cend(), [](QChar character) {
        return WindowsNames::HasForbiddenCharacter(QString(character));
    });
    if (forbidden != name.cend()) {
        return QStringLiteral("contains \"%1\", which Windows does not allow in file names")
            .arg(*forbidden);
    }
    if (WindowsNames::AsKept(name) != name)
        return QStringLiteral("ends with a dot or a blank, which Windows drops");
    if (WindowsNames::IsDevice(name))
        return QStringLiteral("is the name of a device on Windows");
    return QString();
}

/// The findings about one name, @p subject as their messages begin.
Findings CheckName(const QString &name, const QString &path, const QString &subject)
{
    Findings findings;
    if (!IsAscii(name)) {
        findings.append({QStringLiteral("name-ascii"), path,
                         subject + QStringLiteral(" is not plain ASCII, and machines of another "
                                                  "code page would get an empty file; rename it")});
    }
    const QString objection = WindowsObjection(name);
    if (!objection.isEmpty()) {
        findings.append({QStringLiteral("name-windows"), path,
                         QStringLiteral("%1 %2; rename it").arg(subject, objection)});
    }
    return findings;
}

/// What a package of any kind may be called: its name becomes part of an address, and a file.
Findings CheckPackageName(const QString &name)
{
    const QString subject = QStringLiteral("the package's name \"%1\"").arg(Shown(name));
    Findings findings = CheckName(name, QString(), subject);
    for (const QChar character : {QLatin1Char('?'), QLatin1Char('#'), QLatin1Char('%')}) {
        if (name.contains(character)) {
            findings.append({QStringLiteral("package-name"), QString(),
                             QStringLiteral("%1 holds \"%2\", which means something else in an "
                                            "address; rename it")
                                 .arg(subject)
                                 .arg(character)});
        }
    }
    if (name.size() > ReleaseRules::MaxPathLength) {
        findings.append({QStringLiteral("name-length"), QString(),
                         QStringLiteral("%1 has %2 characters, %3 is the most; shorten it")
                             .arg(subject)
                             .arg(name.size())
                             .arg(ReleaseRules::MaxPathLength)});
    }
    // Whatever else the updater refuses.
    if (findings.isEmpty() && !IsUsablePackageName(name)) {
        findings.append({QStringLiteral("package-name"), QString(),
                         subject + QStringLiteral(" is one that the updater refuses to download; "
                                                  "publish a .zip package or an .exe installer")});
    }
    return findings;
}

/// The part of a package's file name that NAME and VERSION make up.
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

/// The folder in which @p entries hold the updater; empty when they do not.
QString UpdaterFolderIn(const QVector<Entry> &entries, const QString &named)
{
    QSet<QString> withProgram;
    QSet<QString> withConfiguration;
    for (const Entry &entry : entries) {
        if (entry.path.compare(named, Qt::CaseInsensitive) == 0)
            return entry.path;
        const QString folder = ParentOf(entry.path);
        if (LastPart(entry.path).compare(kUpdaterProgram, Qt::CaseInsensitive) == 0)
            withProgram.insert(folder);
        if (LastPart(entry.path).compare(kUpdaterConfiguration, Qt::CaseInsensitive) == 0)
            withConfiguration.insert(folder);
    }
    withProgram.intersect(withConfiguration);
    QStringList folders = withProgram.values();
    std::sort(folders.begin(), folders.end());
    return folders.value(0);
}

Finding TooLong(const QString &topFolder, const Entry &entry)
{
    return {QStringLiteral("name-length"), entry.path,
            QStringLiteral("%1: the path has %2 characters in the package, %3 is the most; shorten "
                           "its names")
                .arg(Shown(entry.path))
                .arg(topFolder.size() + 1 + entry.path.size())
                .arg(ReleaseRules::MaxPathLength)};
}

Finding TooLarge(const Entry &entry)
{
    return {QStringLiteral("file-size"), entry.path,
            QStringLiteral("%1: %2 bytes, and the updater takes files of at most %3; split it")
                .arg(Shown(entry.path))
                .arg(entry.size)
                .arg(ReleaseRules::MaxSize)};
}

Finding CaseTwin(const QString &path, const QString &twin)
{
    const QString message =
        path == twin ? QStringLiteral("%1: there are two entries of this name; keep one of them")
                           .arg(Shown(path))
                     : QStringLiteral("%1: Windows takes it for \"%2\"; rename one of them")
                           .arg(Shown(path), Shown(twin));
    return {QStringLiteral("case-twin"), path, message};
}

Finding BeforeItsFolder(const QString &path)
{
    return {QStringLiteral("folder-order"), path,
            QStringLiteral("%1: its folder is not listed before it, and the updater would stop "
                           "there; make the package with \"publish zip\"")
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
    static const QRegularExpression plain(QStringLiteral("\\A[A-Za-z0-9._+-]+\\z"));
    if (version.size() <= MaxVersionLength && plain.match(version).hasMatch())
        return {};
    return {
        {QStringLiteral("version"), QString(),
         QStringLiteral("the version \"%1\" is not 1 to %2 letters, digits, \".\", \"-\", \"_\" "
                        "and \"+\"; write it as the client's configuration has it, as in 2.1.3")
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
        // "Client-Setup-2.1.3" only looks as if it were called like "Client-2.1.3".
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
             QStringLiteral("the version %1 is %2 characters shorter than %3, which was published "
                            "before: where %3 was installed or silenced, this update would leave "
                            "updateconfig.json unreadable, and the client would never be started "
                            "again; give the release a longer version such as %4, or pass "
                            "--allow-shorter-version")
                 .arg(Shown(version))
                 .arg(longest->size() - version.size())
                 .arg(Shown(*longest), Shown(longer))}};
}

Findings ReleaseRules::CheckNotes(const QString &notes, const QString &language)
{
    const QString rule = QStringLiteral("notes");
    if (notes.trimmed().isEmpty()) {
        return {
            {rule, QString(),
             QStringLiteral("the %1 notes are empty, and the prompt would be; write what is new")
                 .arg(language)}};
    }
    if (notes.contains(ServiceContract::NotesSeparator)) {
        return {{rule, QString(),
                 QStringLiteral("the %1 notes hold \"&\", which separates the languages; write "
                                "\"and\", and characters themselves instead of their \"&name;\"")
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
    return {{QStringLiteral("url-prefix"), QString(),
             QStringLiteral("\"%1\" is not the beginning of an address; write it as in "
                            "https://updates.example.com")
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
        findings.append(
            {QStringLiteral("package-name"), QString(),
             QStringLiteral("the package's name \"%1\" holds \"%2\" before its end, and "
                            "the updater would cut it there; take it out")
                 .arg(shown, ZipSuffix)});
    }
    if (top.isEmpty() || top.startsWith(QLatin1Char('.'))) {
        findings.append({QStringLiteral("package-name"), QString(),
                         QStringLiteral("the package's name \"%1\" begins with a dot, which the "
                                        "updater drops when it unpacks; take it away")
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
                 QStringLiteral("the package is empty; publish one that is not")}};
    }
    if (size > MaxSize) {
        return {
            {QStringLiteral("package-size"), QString(),
             QStringLiteral("the package has 2 GiB or more, and the updater reads its size as a "
                            "32-bit number; leave files out, or publish an installer that "
                            "fetches the rest")}};
    }
    return {};
}

Findings ReleaseRules::CheckEntries(const QString &topFolder, const QVector<Entry> &entries)
{
    Findings findings;
    if (entries.isEmpty()) {
        findings.append({QStringLiteral("empty"), QString(),
                         QStringLiteral("there is nothing in the client's folder; name the folder "
                                        "that holds the new client")});
    }
    const int count = entries.size() + 1; // and the top folder
    if (count > MaxEntries) {
        findings.append(
            {QStringLiteral("too-many-entries"), QString(),
             QStringLiteral("%1 files and folders, and the updater can count to %2 only; "
                            "leave some out, or publish an installer")
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
    const QString folder = UpdaterFolderIn(entries, updaterFolder);
    if (folder.isEmpty())
        return {};
    return {{QStringLiteral("updater-folder"), folder,
             QStringLiteral("\"%1\" is the updater's own folder: Windows does not "
                            "overwrite a running program, and the copy would stop there; "
                            "leave it out, name the updater's folder with "
                            "--updater-folder, or pass --allow-updater")
                 .arg(Shown(folder))}};
}

Findings ReleaseRules::WarnOfInstaller(const QString &path, const QByteArray &beginning)
{
    if (beginning.startsWith("MZ"))
        return {};
    return {{QStringLiteral("not-a-program"), QString(),
             QStringLiteral("%1 does not begin as programs for Windows do; see that it is one")
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
    return {{QStringLiteral("older-version"), QString(),
             QStringLiteral("the version %1 is older than %2, which was published before, and is "
                            "offered to those who have %2 too; see that it is meant so")
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
        warnings.append({QStringLiteral("long-path"), firstLong->path,
                         QStringLiteral("%1 paths are longer than %2 characters, as %3: below the "
                                        "folder of a user with a long name they may pass what "
                                        "Windows copies; shorten them")
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
         QStringLiteral("the prompt shows the %1 notes as plain text, tags and all; shorten them, "
                        "or use smaller tables, fewer tables in tables and smaller numbers")
             .arg(language)}};
}
