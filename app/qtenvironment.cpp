// SPDX-License-Identifier: MIT
#include "app/qtenvironment.h"

QtEnvironmentGuard::QtEnvironmentGuard()
{
    // The first loads a library for test automation, the second opens a file with logging rules.
    for (const char *name : {"QT_LOAD_TESTABILITY", "QT_LOGGING_CONF"}) {
        if (!qEnvironmentVariableIsSet(name))
            continue;
        m_hidden.append({name, qgetenv(name)});
        qunsetenv(name);
    }
}

QtEnvironmentGuard::~QtEnvironmentGuard()
{
    for (const Variable &variable : qAsConst(m_hidden))
        qputenv(variable.name, variable.value);
}
