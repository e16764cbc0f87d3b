#pragma once

#include "release/publish/findings.h"
#include "release/publish/progress.h"

#include <QString>
#include <QtGlobal>

/// What tells a file from all others. Digests are lower-case hexadecimal digits.
struct FileDigests {
    qint64 size = 0; ///< in bytes
    QString md5;     ///< what the updater compares (RFC 1321)
    QString sha1;    ///< announced, never compared
    QString sha256;  ///< for people who check a download
};

/// Reads @p path once, in pieces. Fails when it cannot be read to its end.
Failure DigestFile(const QString &path, Progress &progress, FileDigests &digests);
