#pragma once

#include "config/global.h"
#include "release/publish/base/findings.h"

#include <QByteArray>
#include <QString>

/**
 * What the files that the updater reads at its start have to keep, so that it starts, asks the
 * right servers, installs into the right folder, and can read its configuration again after it has
 * written into it. Pure functions: they look at texts only. No findings is good. Callable from
 * every thread.
 */
namespace ConfigRules
{

/// In bytes. On a full disk the beginning of a longer file may be replaced and its end not.
constexpr int RoomySize = 4096;

/// What makes an updater fail, or insecure, whose updateconfig.json is @p text and whose client is
/// updated by @p packages.
Findings CheckUpdateConfig(const QByteArray &text, Global::PackageKind packages);

/// What may not be intended in it.
Findings WarnOfUpdateConfig(const QByteArray &text, Global::PackageKind packages);

/// Of a version file that a zip package copies early, as far as its name tells.
Findings WarnOfOrder(const QByteArray &text);

/**
 * The client's own configuration: @p text is its content, @p name what the messages call it.
 * @p currentVersion is the version in updateconfig.json, empty when there is none.
 */
Findings CheckClientConfig(const QByteArray &text, const QString &name,
                           const QString &currentVersion);

/// The version @p silenced there must not be much longer than the client's @p version.
Findings CheckSilencedVersion(const QString &silenced, const QString &version);

/// The version in the client's configuration @p text; anything but a text is empty, as for the
/// updater.
QString ClientVersion(const QByteArray &text);

} // namespace ConfigRules
