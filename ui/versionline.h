// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/**
 * The line that both dialogs show below their headline: "Version V" or its Chinese form, the
 * offered version, and @p sizeTemplate with %1 replaced by the package size in units of 1024 x 1024
 * bytes with two decimals. Each dialog passes its own translation of the template. A version of
 * more than 128 UTF-16 units is cut and ends with an ellipsis.
 */
QString VersionLine(const QString &sizeTemplate);
