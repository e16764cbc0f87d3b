// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <QtCore/private/qabstractfileengine_p.h>
#include <QtCore/private/qfsfileengine_p.h>
#include <algorithm>
#include <limits>
#include <utility>

/// While it lives, some bytes of one file cannot be read, as on a damaged disk.
class DamagedDisk : public QAbstractFileEngineHandler
{
public:
    /// The bytes from @p begin up to, but not including, @p end of the file cannot be read.
    explicit DamagedDisk(QString path, qint64 begin,
                         qint64 end = std::numeric_limits<qint64>::max())
        : m_path(std::move(path)), m_begin(begin), m_end(end)
    {
    }

    QAbstractFileEngine *create(const QString &fileName) const override
    {
        return fileName == m_path ? new Engine(fileName, m_begin, m_end) : nullptr;
    }

private:
    class Engine : public QFSFileEngine
    {
    public:
        Engine(const QString &path, qint64 begin, qint64 end)
            : QFSFileEngine(path), m_begin(begin), m_end(end)
        {
        }

        qint64 read(char *data, qint64 size) override
        {
            if (pos() >= m_end)
                return QFSFileEngine::read(data, size);
            if (pos() < m_begin)
                return QFSFileEngine::read(data, std::min(size, m_begin - pos()));
            setError(QFileDevice::ReadError, QStringLiteral("Input/output error"));
            return -1;
        }

    private:
        qint64 m_begin;
        qint64 m_end;
    };

    QString m_path;
    qint64 m_begin;
    qint64 m_end;
};
