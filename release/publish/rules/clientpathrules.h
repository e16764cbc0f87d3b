#pragma once

#include "config/global.h"
#include "release/publish/base/findings.h"

#include <QString>

/**
 * What the client's folder in updateconfig.json has to keep. The text is used as a prefix of file
 * names, with slashes of either direction, and a relative one begins at the updater's own folder.
 * Zip packages ask for more than installers do: they are always copied over the folder above the
 * updater's, with the rights of the user. Pure functions, callable from every thread. An empty path
 * is not theirs to judge.
 */
namespace ClientPathRules
{

Findings Check(const QString &path, Global::PackageKind packages);

Findings Warn(const QString &path, Global::PackageKind packages);

/// What Windows objects to in the names that @p path is made of, as the end of a sentence about it;
/// empty when nothing. It may be relative, and has no drive.
QString NamesObjection(const QString &path);

} // namespace ClientPathRules
