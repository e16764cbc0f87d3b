// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

/// Sets a variable of this process's environment while it lives.
class EnvironmentVariable
{
public:
    EnvironmentVariable(const char *name, const QByteArray &value)
        : m_name(name), m_old(qgetenv(name))
    {
        qputenv(name, value);
    }

    ~EnvironmentVariable()
    {
        if (m_old.isNull())
            qunsetenv(m_name);
        else
            qputenv(m_name, m_old);
    }

    Q_DISABLE_COPY(EnvironmentVariable)

private:
    const char *m_name;
    const QByteArray m_old;
};
