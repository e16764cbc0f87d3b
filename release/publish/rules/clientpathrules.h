// SPDX-License-Identifier: MIT
#pragma once

#include "config/servicecontract.h"
#include "release/publish/base/findings.h"

#include <QString>

/**
 * The rules for the client's folder in updateconfig.json. The text is used as a prefix of file
 * names, slashes may have either direction, and a relative path is relative to the updater's own
 * folder. Zip packages have stricter rules than installers, because they are always copied over the
 * parent of the updater's folder, with the user's permissions. Pure functions, callable from every
 * thread. An empty path passes.
 */
namespace ClientPathRules
{

Findings Check(const QString &path, ServiceContract::PackageKind packages);

Findings Warn(const QString &path, ServiceContract::PackageKind packages);

/// Why Windows does not accept a name in @p path, as the end of a sentence about it; empty when it
/// accepts all. @p path may be relative and has no drive.
QString NamesObjection(const QString &path);

} // namespace ClientPathRules
