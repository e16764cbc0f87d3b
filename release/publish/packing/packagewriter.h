// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/findings.h"
#include "release/publish/base/progress.h"
#include "release/publish/rules/releaserules.h"

#include <QString>
#include <QVector>

/**
 * Packs @p entries of @p clientFolder, in their order, below @p topFolder into the new zip file
 * @p target. The result depends only on names and contents, not on times, modes or the machine.
 * Works in small blocks. After a failure, the state of @p target is undefined.
 */
Failure WritePackage(const QString &clientFolder, const QString &topFolder,
                     const QVector<ReleaseRules::Entry> &entries, const QString &target,
                     Progress &progress);
