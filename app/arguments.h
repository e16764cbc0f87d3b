#pragma once

/**
 * Puts the program's arguments, all but the program's name, into Global::cmdLineArgs in their order
 * and logs each. They are taken for UTF-8 whatever the system's locale says. GUI thread, before the
 * worker exists.
 */
void CaptureArguments(int argc, char *argv[]);
