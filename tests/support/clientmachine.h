// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/standinfile.h"
#include "tests/support/testhome.h"

#include <QString>

/**
 * A machine with an installed client: a stand-in under a name of its own, which records how it is
 * started. Global::instance names it, as the configuration would. GUI thread.
 */
class ClientMachine : public TestHome
{
public:
    ClientMachine();

    /// The file name of the client's program.
    QString ClientName() const;

    /// Where the updater puts this client's packages.
    QString DownloadFolder() const;

    StandIn client;
};
