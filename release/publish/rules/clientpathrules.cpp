// SPDX-License-Identifier: MIT
#include "release/publish/rules/clientpathrules.h"

#include "config/configcontract.h"
#include "release/publish/rules/releaserules.h"

#include <QDir>
#include <QRegularExpression>

namespace
{

using ReleaseRules::Shown;

constexpr int kDriveLength = 2; // "C:"

Finding About(const QString &path, const QString &what)
{
    return {QStringLiteral("app-path"), QString(),
            QStringLiteral("the client's folder \"%1\" %2").arg(Shown(path), what)};
}

Finding AboutRights(const QString &path, const QString &what)
{
    return {QStringLiteral("protected-folder"), QString(),
            QStringLiteral("users have no write permission in the client's folder \"%1\", and %2")
                .arg(Shown(path), what)};
}

QString WithForwardSlashes(QString path)
{
    return path.replace(QLatin1Char('\\'), QLatin1Char('/'));
}

bool HasDrive(const QString &path)
{
    static const QRegularExpression drive(QStringLiteral("\\A[A-Za-z]:"));
    return drive.match(path).hasMatch();
}

/// The first "%NAME%" in @p path; empty when there is none.
QString Variable(const QString &path)
{
    static const QRegularExpression variable(QStringLiteral("%[^%/]+%"));
    return variable.match(path).captured();
}

bool IsOnServer(const QString &path)
{
    return WithForwardSlashes(path).startsWith(QLatin1String("//"));
}

/// @p path relative to the root of its drive, without "." and ".."; empty when it does not begin at
/// a root.
QString FromRoot(const QString &path)
{
    const QString plain = WithForwardSlashes(path);
    QString rest = HasDrive(plain) ? plain.mid(kDriveLength) : plain;
    if (!rest.startsWith(QLatin1Char('/')) || IsOnServer(plain))
        return QString();
    while (rest.startsWith(QLatin1String("//")))
        rest.remove(0, 1);
    // The root is its own parent folder.
    rest = QDir::cleanPath(rest) + QLatin1Char('/');
    while (rest.startsWith(QLatin1String("/../")))
        rest.remove(0, 3);
    return QDir::cleanPath(rest);
}

/// True for a folder, by its usual or its short name, that only administrators may write to.
bool IsProtected(const QString &path)
{
    static const QRegularExpression names(
        QStringLiteral("\\A/(?:program files(?: \\(x86\\))?|programdata|progra~[0-9]|windows)"
                       "(?:/|\\z)"),
        QRegularExpression::CaseInsensitiveOption);
    return names.match(FromRoot(path)).hasMatch();
}

bool IsOneUsers(const QString &path)
{
    static const QRegularExpression profile(QStringLiteral("\\A/users/(?!public(?:/|\\z))"),
                                            QRegularExpression::CaseInsensitiveOption);
    return profile.match(FromRoot(path)).hasMatch();
}

/// Checks a path that begins at the root of a drive. Without a drive, it is on the updater's.
Findings CheckAbsoluteFolder(const QString &path, bool isZip)
{
    // xcopy would get "C:" without a slash, which means the current folder.
    if (isZip && FromRoot(path) == QLatin1String("/")) {
        return {About(
            path,
            QStringLiteral("is the root of a drive, so packages would be copied into the updater's "
                           "own folder; use a folder below it, such as \"C:/Norvane/Client/\""))};
    }
    if (isZip && IsProtected(path)) {
        return {AboutRights(
            path, QStringLiteral("zip packages cannot be copied there; use a folder of the user, "
                                 "or publish installers and pass --installer"))};
    }
    return {};
}

/// Checks a path that is relative to the updater's own folder, which is the working folder.
Findings CheckRelativeFolder(const QString &path, bool isZip)
{
    if (HasDrive(path)) {
        return {About(path, QStringLiteral("has no slash after the drive, so it is relative to the "
                                           "current folder of that drive; write \"%1/%2\"")
                                .arg(path.left(kDriveLength), Shown(path.mid(kDriveLength))))};
    }
    if (!isZip || QDir::cleanPath(path) == QLatin1String(".."))
        return {};
    return {About(path, QStringLiteral("is not the parent of the updater's folder, over which zip "
                                       "packages are copied; write \"../\""))};
}

} // namespace

QString ClientPathRules::NamesObjection(const QString &path)
{
    const QStringList names = WithForwardSlashes(path).split(QLatin1Char('/'), Qt::SkipEmptyParts);
    for (const QString &name : names) {
        const bool isDots = name == QLatin1String(".") || name == QLatin1String("..");
        const QString objection = isDots ? QString() : ReleaseRules::WindowsObjection(name);
        if (!objection.isEmpty())
            return objection;
    }
    return QString();
}

Findings ClientPathRules::Check(const QString &path, ServiceContract::PackageKind packages)
{
    if (path.isEmpty())
        return {};
    const QString plain = WithForwardSlashes(path);
    const QString variable = Variable(plain);
    if (!variable.isEmpty()) {
        return {About(path,
                      QStringLiteral("contains \"%1\", but the updater does not expand variables; "
                                     "write \"../\" for the parent of the updater's folder")
                          .arg(Shown(variable)))};
    }
    Findings findings;
    if (!plain.endsWith(QLatin1Char('/'))) {
        findings.append(About(path, QStringLiteral("does not end with a slash, but file names are "
                                                   "appended directly to it; write \"%1/\"")
                                        .arg(Shown(plain))));
    }
    const QString objection = NamesObjection(HasDrive(plain) ? plain.mid(kDriveLength) : plain);
    if (!objection.isEmpty())
        findings.append(About(path, objection + QStringLiteral("; use another folder")));

    const bool isZip = packages == ServiceContract::ZipPackage;
    if (!FromRoot(plain).isEmpty())
        findings += CheckAbsoluteFolder(plain, isZip);
    else if (!IsOnServer(plain))
        findings += CheckRelativeFolder(plain, isZip);
    return findings;
}

Findings ClientPathRules::Warn(const QString &path, ServiceContract::PackageKind packages)
{
    if (IsOnServer(path)) {
        return {About(path, QStringLiteral("is on a server, and the client cannot start without "
                                           "it; check that this is intended"))};
    }
    Findings warnings;
    if (!FromRoot(path).isEmpty() && !HasDrive(path)) {
        warnings.append(About(
            path,
            QStringLiteral(
                "has no drive, so it is on the updater's drive; check that this is intended")));
    }
    if (IsOneUsers(path)) {
        warnings.append(
            About(path, QStringLiteral("belongs to one user; write \"../\" for the parent of the "
                                       "updater's folder, which works for every user")));
    }
    const bool isZip = packages == ServiceContract::ZipPackage;
    if (isZip && !FromRoot(path).isEmpty() && !IsOneUsers(path) &&
        Check(path, packages).isEmpty()) {
        warnings.append(
            {QStringLiteral("shared-folder"), QString(),
             QStringLiteral(
                 "the client's folder \"%1\" is shared by all users of a machine, so each of them "
                 "can replace the client that the others start; write \"../\" and install the "
                 "client per user, or check that this is intended")
                 .arg(Shown(path))});
    }
    if (!isZip && IsProtected(path)) {
        warnings.append(AboutRights(
            path, QStringLiteral("after \"Never Prompt\" the updater would end without starting "
                                 "the client; let the installer give users write permission for %1")
                      .arg(ConfigContract::FileName)));
    }
    return warnings;
}
