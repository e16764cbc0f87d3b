// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

#include <QtCore/private/qabstractfileengine_p.h>

/**
 * Records the files that Qt opens or looks for on the disk while it lives, if their names contain
 * @p part. The program's resources do not count. One at a time.
 */
class FileWatch : public QAbstractFileEngineHandler
{
public:
    explicit FileWatch(QString part);

    QAbstractFileEngine *create(const QString &fileName) const override;

    /// In the order of access, with repetitions.
    QStringList Names() const { return m_names; }

private:
    QString m_part;
    mutable QStringList m_names;
};
