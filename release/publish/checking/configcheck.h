// SPDX-License-Identifier: MIT
#pragma once

#include "config/servicecontract.h"
#include "release/publish/base/report.h"

#include <QString>

/// What to check before a client ships.
struct ConfigCheckOptions {
    QString file;         ///< the updater's configuration
    QString clientFolder; ///< the client's folder as it ships; empty: only the file is checked
    /// The kind of packages that update the client.
    ServiceContract::PackageKind packages = ServiceContract::ZipPackage;
};

/**
 * Checks the updater's configuration. With a client's folder, also checks that it matches the
 * client in it: its program, its configuration and version, and the updater's place. Writes
 * nothing. Main thread.
 */
Outcome CheckConfig(const ConfigCheckOptions &options);
