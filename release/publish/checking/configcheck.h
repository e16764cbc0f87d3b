#pragma once

#include "config/global.h"
#include "release/publish/base/report.h"

#include <QString>

/// What is checked before a client ships.
struct ConfigCheckOptions {
    QString file;         ///< the updater's configuration
    QString clientFolder; ///< the client's folder as it ships, or empty: then only the file is read
    Global::PackageKind packages = Global::ZipPackage; ///< what updates the client
};

/**
 * Checks the updater's configuration and, with a client's folder, that it fits the client in there:
 * program, configuration and version, and the place of the updater. Reads files and writes none.
 * Main thread.
 */
Outcome CheckConfig(const ConfigCheckOptions &options);
