// SPDX-License-Identifier: MIT
#pragma once

#include "config/servicecontract.h"
#include "release/publish/base/findings.h"

#include <QByteArray>
#include <QString>

/**
 * The rules for the files that the updater reads when it starts, so that it asks the right servers,
 * installs into the right folder, and can still read its configuration after it has written to it.
 * Pure functions on texts. No findings means that the rules are followed. Callable from every
 * thread.
 */
namespace ConfigRules
{

/// In bytes. On a full disk, only the beginning of a longer file may be replaced.
constexpr int RoomySize = 4096;

/// Refuses an updateconfig.json with which the updater would fail or be insecure. @p text is its
/// content; @p packages is the kind of package that updates the client.
Findings CheckUpdateConfig(const QByteArray &text, ServiceContract::PackageKind packages);

/// Warns of what may be unintended in the same file.
Findings WarnOfUpdateConfig(const QByteArray &text, ServiceContract::PackageKind packages);

/// Warns when the name of the version file suggests that it is copied early from a zip package.
Findings WarnOfOrder(const QByteArray &text);

/**
 * Checks the client's own configuration. @p text is its content, @p name its name in the messages,
 * and @p currentVersion the version in updateconfig.json, empty when there is none.
 */
Findings CheckClientConfig(const QByteArray &text, const QString &name,
                           const QString &currentVersion);

/// Refuses a version @p silenced in updateconfig.json that is much longer than the client's
/// @p version.
Findings CheckSilencedVersion(const QString &silenced, const QString &version);

/// The version in the client's configuration @p text; empty when it is not a string, as for the
/// updater.
QString ClientVersion(const QByteArray &text);

} // namespace ConfigRules
