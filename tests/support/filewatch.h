#pragma once

#include <QString>
#include <QStringList>

#include <QtCore/private/qabstractfileengine_p.h>

/**
 * Writes down the files that the framework opens or looks for on the disk while it lives, out of
 * those whose name has @p part in it. The program's resources do not count. One at a time.
 */
class FileWatch : public QAbstractFileEngineHandler
{
public:
    explicit FileWatch(QString part);

    QAbstractFileEngine *create(const QString &fileName) const override;

    /// In the order in which they were asked for; one can come several times.
    QStringList Names() const { return m_names; }

private:
    QString m_part;
    mutable QStringList m_names;
};
