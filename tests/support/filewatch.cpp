// SPDX-License-Identifier: MIT
#include "tests/support/filewatch.h"

#include <utility>

#include <QtCore/private/qfsfileengine_p.h>

namespace
{

/// A file on the disk that records its name on each access.
class WatchedFile : public QFSFileEngine
{
public:
    WatchedFile(const QString &name, QStringList &names)
        : QFSFileEngine(name), m_name(name), m_names(names)
    {
    }

    bool open(QIODevice::OpenMode mode) override
    {
        m_names.append(m_name);
        return QFSFileEngine::open(mode);
    }

    FileFlags fileFlags(FileFlags type) const override
    {
        m_names.append(m_name);
        return QFSFileEngine::fileFlags(type);
    }

    qint64 size() const override
    {
        m_names.append(m_name);
        return QFSFileEngine::size();
    }

private:
    QString m_name;
    QStringList &m_names;
};

} // namespace

FileWatch::FileWatch(QString part) : m_part(std::move(part)) {}

QAbstractFileEngine *FileWatch::create(const QString &fileName) const
{
    const bool isResource = fileName.startsWith(QLatin1Char(':'));
    return fileName.contains(m_part) && !isResource ? new WatchedFile(fileName, m_names) : nullptr;
}
