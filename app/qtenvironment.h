#pragma once

#include <QByteArray>
#include <QVector>

/**
 * Keeps Qt from the environment variables that make it load a library or open a file, while it
 * lives: Qt reads them when the application object is built. They are put back afterwards, because
 * the client inherits the environment and may want them. GUI thread, before any other thread
 * exists.
 *
 * Those that name plugins are not among them: the shipped program is linked statically and loads
 * none.
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
