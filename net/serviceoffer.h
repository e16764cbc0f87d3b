// SPDX-License-Identifier: MIT
#pragma once

#include "net/downloadfolder.h"

#include <QString>

class Global;

/// What the service's answer means for this run. Every verdict but Update ends with the client
/// started unchanged.
struct ServiceOffer {
    enum class Verdict {
        Installed,    ///< the offered version is the installed one
        Silenced,     ///< the user chose never to be prompted for this version
        NoUpdate,     ///< the service says that there is no update
        UnusableName, ///< the package's name cannot be that of a harmless file
        Update,       ///< to be announced to the user
    };

    Verdict verdict = Verdict::NoUpdate;
    QString packageName;   ///< file name of the package; harmless for an Update only
    DownloadFolder folder; ///< where the package goes

    /// Full path of the package file.
    QString PackagePath() const;
};

/// Judges the service's answer in @p global. The verdicts are tried in the order of their
/// declaration. Changes nothing, neither in memory nor on the disk. Worker thread.
ServiceOffer ReadServiceOffer(const Global &global);
