#pragma once

#include "release/publish/findings.h"
#include "release/publish/progress.h"
#include "release/publish/releaserules.h"

#include <QString>
#include <QVector>

/**
 * Packs @p entries of @p clientFolder below @p topFolder into the new zip file @p target, in their
 * order. The bytes depend on names and contents alone: not on times, modes or the machine. Reads
 * and writes in small pieces. Whether @p target is there after
 * a failure, and what it holds, is not said.
 */
Failure WritePackage(const QString &clientFolder, const QString &topFolder,
                     const QVector<ReleaseRules::Entry> &entries, const QString &target,
                     Progress &progress);
