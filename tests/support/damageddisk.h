#pragma once

#include <QString>

#include <QtCore/private/qabstractfileengine_p.h>
#include <QtCore/private/qfsfileengine_p.h>
#include <algorithm>
#include <utility>

/// While it lives, one file can be read up to a certain byte only, as on a damaged disk.
class DamagedDisk : public QAbstractFileEngineHandler
{
public:
    /// The file at @p path fails from byte number @p soundBytes on.
    DamagedDisk(QString path, qint64 soundBytes) : m_path(std::move(path)), m_soundBytes(soundBytes)
    {
    }

    QAbstractFileEngine *create(const QString &fileName) const override
    {
        return fileName == m_path ? new Engine(fileName, m_soundBytes) : nullptr;
    }

private:
    class Engine : public QFSFileEngine
    {
    public:
        Engine(const QString &path, qint64 soundBytes)
            : QFSFileEngine(path), m_soundBytes(soundBytes)
        {
        }

        qint64 read(char *data, qint64 size) override
        {
            const qint64 left = m_soundBytes - pos();
            if (left > 0)
                return QFSFileEngine::read(data, std::min(size, left));
            setError(QFileDevice::ReadError, QStringLiteral("Input/output error"));
            return -1;
        }

    private:
        qint64 m_soundBytes;
    };

    QString m_path;
    qint64 m_soundBytes;
};
