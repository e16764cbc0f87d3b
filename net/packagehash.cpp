// SPDX-License-Identifier: MIT
#include "config/global.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QDebug>
#include <QFile>

namespace
{

/// Larger pieces are not faster, because they do not fit into the processor's cache.
constexpr int kPieceSize = 64 * 1024;

/// Adds the rest of @p file to @p hash. False when it cannot be read to its end.
bool AddContent(QFile &file, QCryptographicHash &hash)
{
    QByteArray piece(kPieceSize, Qt::Uninitialized);
    qint64 size = file.read(piece.data(), piece.size());
    while (size > 0) {
        hash.addData(piece.constData(), int(size));
        size = file.read(piece.data(), piece.size());
    }
    return size == 0;
}

} // namespace

QString Global::FileMd5(const QString &path) const
{
    QFile file(path);
    // Unbuffered: every byte is read only once, so a buffer would just be another copy.
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        qDebug() << path << " open failed:" << int(file.error());
        return QString();
    }
    QCryptographicHash hash(QCryptographicHash::Md5);
    if (!AddContent(file, hash)) {
        qDebug() << path << " read failed:" << int(file.error());
        // Without this, a file whose first read fails would have the digest of an empty file.
        hash.addData(QByteArrayLiteral("unreadable from here on"));
    }
    file.close();

    const QString checkMd5 = QString::fromLatin1(hash.result().toHex());
    qInfo() << "org:" << md5 << " checkmd5:" << checkMd5;
    return checkMd5;
}
