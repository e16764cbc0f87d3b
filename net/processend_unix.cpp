// SPDX-License-Identifier: MIT
#include "net/processend.h"

#include <openssl/crypto.h>
#include <unistd.h>

void ProcessEnd::LeaveAtOnce(int exitCode)
{
    _exit(exitCode);
}

void ProcessEnd::KeepTlsUntilTheEnd()
{
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
}
