// SPDX-License-Identifier: MIT
#pragma once

/**
 * Loads in advance what the first request over TLS needs: the TLS library, the certificates of the
 * machine, and Qt's information about the network. Changes nothing else. Takes some tens of
 * milliseconds, so call it while the program waits anyway. Any thread.
 */
void PrepareTls();
