#pragma once

#include "release/publish/progress.h"
#include "release/publish/report.h"

#include <QString>

/**
 * Holds the release in the tree @p folder against every rule. Writes nothing. @p updaterFolder is
 * the updater's folder, relative to the client's.
 */
Outcome VerifyRelease(const QString &folder, const QString &updaterFolder, Progress &progress);
