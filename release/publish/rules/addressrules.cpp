// SPDX-License-Identifier: MIT
#include "release/publish/rules/addressrules.h"

#include "release/publish/rules/releaserules.h"

#include <QRegularExpression>
#include <QUrl>

namespace
{

using ReleaseRules::Shown;

/// The end of the path of every check.
const QString kCheck = QStringLiteral("/check");

Finding About(const QString &name, const QString &what)
{
    return {QStringLiteral("address"), QString(), QStringLiteral("\"%1\" %2").arg(name, what)};
}

/// Parses @p address as the updater does.
QUrl Url(const QString &address)
{
    return QUrl(address, QUrl::TolerantMode);
}

QString Host(const QString &address)
{
    return Url(address).host(QUrl::FullyEncoded);
}

bool IsIpAddress(const QString &host)
{
    static const QRegularExpression dotted(QStringLiteral("\\A[0-9.]+\\z"));
    return host.contains(QLatin1Char(':')) || dotted.match(host).hasMatch();
}

/// Letters, digits and hyphens, as in certificates. Source: RFC 1123, section 2.1.
bool IsHostName(const QString &host)
{
    static const QRegularExpression labels(QStringLiteral(
        "\\A[a-z0-9](?:[a-z0-9-]*[a-z0-9])?(?:\\.[a-z0-9](?:[a-z0-9-]*[a-z0-9])?)*\\z"));
    return labels.match(host).hasMatch();
}

/// Why users may be unable to reach @p host, as the end of a sentence; empty when there is no
/// doubt.
QString HostDoubt(const QString &host)
{
    // Source: RFC 2606 and RFC 6761.
    static const QRegularExpression reserved(
        QStringLiteral("(?:\\A|\\.)(?:example(?:\\.(?:com|net|org))?|invalid|localhost|test)\\z"));
    if (reserved.match(host).hasMatch())
        return QStringLiteral("which is reserved for examples and tests");
    if (IsIpAddress(host))
        return QStringLiteral("an IP address, and few certificates are issued for one");
    if (!host.contains(QLatin1Char('.')))
        return QStringLiteral("which only machines in the same network can find");
    return QString();
}

/// @p url with the path at which the service answers checks.
QString WithCheck(const QUrl &url)
{
    static const QRegularExpression end(QStringLiteral("(?:%1)?/*\\z").arg(kCheck),
                                        QRegularExpression::CaseInsensitiveOption);
    QString address = url.toString(QUrl::RemoveQuery | QUrl::RemoveFragment | QUrl::FullyEncoded);
    return address.left(end.match(address).capturedStart()) + kCheck;
}

/// Characters that are not allowed in an address are treated differently by different programs.
bool HasOnlyAddressCharacters(const QString &address)
{
    static const QRegularExpression plain(
        QStringLiteral("\\A[A-Za-z0-9._~:/?#\\[\\]@!$&'()*+,;=%-]*\\z"));
    return plain.match(address).hasMatch();
}

} // namespace

Findings AddressRules::Check(const QString &name, const QString &address)
{
    if (address.isEmpty())
        return {};
    if (!HasOnlyAddressCharacters(address)) {
        return {About(
            name,
            QStringLiteral(
                "contains characters that are not allowed in an address: \"%1\"; write an "
                "international host name in its \"xn--\" form, and percent-encode everything else")
                .arg(Shown(address)))};
    }
    const QUrl url = Url(address);
    if (url.scheme() != QLatin1String("https")) {
        return {About(
            name, QStringLiteral("does not begin with \"https://\", so anyone on the network path "
                                 "could answer instead of the server; write an HTTPS address"))};
    }
    Findings findings;
    const QString host = Host(address);
    if (!url.isValid() || (!IsHostName(host) && !IsIpAddress(host))) {
        findings.append(About(
            name,
            QStringLiteral("has no valid host: \"%1\"; write it like https://updates.example.com/")
                .arg(Shown(address))));
    }
    if (url.authority().contains(QLatin1Char('@'))) {
        findings.append(
            About(name, QStringLiteral("contains a user name or password, which everyone with the "
                                       "file can read and the updater never sends; remove it")));
    }
    return findings;
}

Findings AddressRules::CheckPrefix(const QString &name, const QString &address)
{
    Findings findings = Check(name, address);
    if (address.isEmpty())
        return findings;
    const QUrl url = Url(address);
    if (url.hasQuery() || url.hasFragment()) {
        findings.append(About(
            name,
            QStringLiteral("contains \"?\" or \"#\", so the package's id that is appended to it "
                           "would not be part of the path; write the address of a folder")));
    } else if (!address.endsWith(QLatin1Char('/'))) {
        findings.append(
            About(name, QStringLiteral("does not end with a slash, so the package's id that is "
                                       "appended to it could lead to another server; write \"%1/\"")
                            .arg(Shown(address))));
    }
    return findings;
}

Findings AddressRules::WarnOfHost(const QString &name, const QString &address)
{
    const QString host = Host(address);
    const QString doubt = HostDoubt(host);
    if (host.isEmpty() || doubt.isEmpty())
        return {};
    return {{QStringLiteral("host"), QString(),
             QStringLiteral("\"%1\" has the host \"%2\", %3; write the name of your own server")
                 .arg(name, Shown(host), doubt)}};
}

Findings AddressRules::WarnOfCheck(const QString &name, const QString &address)
{
    Findings warnings = WarnOfHost(name, address);
    if (address.isEmpty() || !Check(name, address).isEmpty())
        return warnings;
    const QUrl url = Url(address);
    if (url.hasQuery() || url.hasFragment()) {
        warnings.append({QStringLiteral("address-parts"), QString(),
                         QStringLiteral("\"%1\" contains \"?\" or \"#\", but the update service "
                                        "looks only at the path; remove everything after the path")
                             .arg(name)});
    }
    if (!url.path().endsWith(kCheck)) {
        warnings.append({QStringLiteral("check-path"), QString(),
                         QStringLiteral("\"%1\" does not end with \"%2\", where the service "
                                        "answers; write \"%3\"")
                             .arg(name, kCheck, Shown(WithCheck(url)))});
    }
    return warnings;
}
