// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/**
 * True when the output of tasklist for the image name @p appName contains that name: a
 * case-sensitive search for a plain substring. Blocks for up to 30000 ms; then the output so far
 * decides. When tasklist cannot be started, the client counts as not running. Any thread.
 */
bool ClientIsListed(const QString &appName);

/**
 * Ends a running client by force and waits until taskkill has finished. Does nothing when the
 * client does not run. Blocks as ClientIsListed() does. Any thread.
 */
void StopRunningClient(const QString &appName);
