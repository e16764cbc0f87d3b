// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/findings.h"

#include <QString>

/**
 * The rules for addresses in updateconfig.json. Pure functions, callable from every thread. Empty
 * addresses pass. @p name is the key, for the messages.
 */
namespace AddressRules
{

/// Every address must have HTTPS, a host and no user name or password. Source: RFC 3986.
Findings Check(const QString &name, const QString &address);

/// The same, and the id of a package can be appended safely: the id comes from an unverified answer
/// and must not lead to another server.
Findings CheckPrefix(const QString &name, const QString &address);

/// Warns of a host that users may be unable to reach.
Findings WarnOfHost(const QString &name, const QString &address);

/// Warns about the address of the check: its host, parts that the update service ignores, and a
/// path where the service does not answer.
Findings WarnOfCheck(const QString &name, const QString &address);

} // namespace AddressRules
