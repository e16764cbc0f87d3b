// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/// The folder that receives the package.
struct DownloadFolder {
    QString path; ///< absolute, with forward slashes

    /// False for a client without a name: its folder is the one with the data of all programs.
    /// Nothing is ever removed from that folder nor downloaded into it.
    bool isOwn = false;
};

/// The folder for the client whose image name is @p appName. Does not touch the disk. Any thread.
DownloadFolder DownloadFolderOf(const QString &appName);
