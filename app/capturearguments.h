// SPDX-License-Identifier: MIT
#pragma once

/**
 * Appends the program's arguments, without the program's name, to Global::cmdLineArgs in their
 * order and logs each. They are decoded as UTF-8 whatever the system's locale is. GUI thread,
 * before the worker exists.
 */
void CaptureArguments(int argc, char *argv[]);
