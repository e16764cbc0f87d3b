// SPDX-License-Identifier: MIT
// Qt loads this library for test automation when the environment asks for it. Loading it ends the
// program with a special exit code.

#include <QtGlobal>

#include <cstdlib>

extern "C" Q_DECL_EXPORT void qt_testability_init()
{
    std::_Exit(42);
}
