// SPDX-License-Identifier: MIT
#include "release/publish/base/filedigests.h"

#include <QCryptographicHash>
#include <QFile>

namespace
{

constexpr int kPieceSize = 1024 * 1024;

QString Hexadecimal(const QCryptographicHash &hash)
{
    return QString::fromLatin1(hash.result().toHex());
}

} // namespace

QString ShortDigest(const QByteArray &content)
{
    constexpr int digits = 8;
    const QByteArray digest = QCryptographicHash::hash(content, QCryptographicHash::Sha256);
    return QString::fromLatin1(digest.toHex().left(digits));
}

Failure DigestFile(const QString &path, Progress &progress, FileDigests &digests)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        return Finding{
            QStringLiteral("unreadable"), path,
            QStringLiteral("%1: %2; correct its permissions").arg(path, file.errorString())};
    }
    QCryptographicHash md5(QCryptographicHash::Md5);
    QCryptographicHash sha1(QCryptographicHash::Sha1);
    QCryptographicHash sha256(QCryptographicHash::Sha256);
    QByteArray piece(kPieceSize, Qt::Uninitialized);
    digests.size = 0;
    for (;;) {
        const qint64 count = file.read(piece.data(), piece.size());
        if (count < 0) {
            return Finding{QStringLiteral("unreadable"), path,
                           QStringLiteral("%1: %2; check the disk").arg(path, file.errorString())};
        }
        if (count == 0)
            break;
        for (QCryptographicHash *hash : {&md5, &sha1, &sha256})
            hash->addData(piece.constData(), int(count));
        digests.size += count;
        if (!progress.Advance(count))
            return Interrupted();
    }
    digests.md5 = Hexadecimal(md5);
    digests.sha1 = Hexadecimal(sha1);
    digests.sha256 = Hexadecimal(sha256);
    return {};
}
