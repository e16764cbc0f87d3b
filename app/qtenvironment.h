// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QVector>

/**
 * While it exists, hides the environment variables that make Qt load a library or open a file. Qt
 * reads them when the application object is created. They are restored afterwards, because the
 * client inherits the environment and may need them. GUI thread, before any other thread exists.
 *
 * Variables that name plugins are not hidden: the shipped program is linked statically and loads no
 * plugins.
 */
class QtEnvironmentGuard
{
public:
    QtEnvironmentGuard();
    ~QtEnvironmentGuard();

private:
    Q_DISABLE_COPY(QtEnvironmentGuard)

    struct Variable {
        const char *name;
        QByteArray value;
    };

    QVector<Variable> m_hidden;
};
