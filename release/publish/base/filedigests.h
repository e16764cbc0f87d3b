// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/findings.h"
#include "release/publish/base/progress.h"

#include <QByteArray>
#include <QString>
#include <QtGlobal>

/// Identifies the content of a file. Digests are lower-case hexadecimal digits.
struct FileDigests {
    qint64 size = 0; ///< in bytes
    QString md5;     ///< compared by the updater (RFC 1321)
    QString sha1;    ///< announced, but never compared
    QString sha256;  ///< for people who check a download by hand
};

/// The first digits of the SHA-256 of @p content, for unique names of short-lived files.
QString ShortDigest(const QByteArray &content);

/// Reads @p path once, in blocks. Fails when it cannot be read completely.
Failure DigestFile(const QString &path, Progress &progress, FileDigests &digests);
