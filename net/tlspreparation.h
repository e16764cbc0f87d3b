#pragma once

/**
 * Loads what the first request over TLS would load: the TLS library, the certificates of the
 * machine, and what the framework wants to know of the network. Changes nothing else. Takes some
 * tens of milliseconds, so call it where there is time to spare. Any thread.
 */
void PrepareTls();
