#pragma once

#include "release/publish/base/findings.h"

#include <QString>

/**
 * What an address in updateconfig.json has to keep. Pure functions, callable from every thread.
 * Empty addresses are not theirs to judge. @p name stands in the messages.
 */
namespace AddressRules
{

/// Of every address: HTTPS, a host, and nothing that identifies the user. Source: RFC 3986.
Findings Check(const QString &name, const QString &address);

/// The same, and that the id of a package can be appended to it: the id comes with an unverified
/// answer, and may lead nowhere but to the same server.
Findings CheckPrefix(const QString &name, const QString &address);

/// Of a host that the machines of users may not reach.
Findings WarnOfHost(const QString &name, const QString &address);

/// Of the check: of its host, of parts that the update service does not look at, and of a path
/// where it does not answer.
Findings WarnOfCheck(const QString &name, const QString &address);

} // namespace AddressRules
