#include "config/global.h"

#include <QCryptographicHash>
#include <QDebug>
#include <QFile>

QString Global::FileMd5(const QString &path) const
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qDebug() << path << " open failed:" << int(file.error());
        return QString();
    }
    const QByteArray digest = QCryptographicHash::hash(file.readAll(), QCryptographicHash::Md5);
    file.close();

    const QString checkMd5 = QString::fromLatin1(digest.toHex());
    qInfo() << "org:" << md5 << " checkmd5:" << checkMd5;
    return checkMd5;
}
