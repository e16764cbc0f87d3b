// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

class ZipMaker;

/// Text that can be compressed.
QByteArray SomeText();

/// Bytes that cannot be compressed, the same ones each time.
QByteArray SomeNoise(int size);

/// Adds the folder "pkg", then "pkg/app.txt" with SomeText(), then "pkg/after.txt" with "after".
void AddThreeEntries(ZipMaker &zip);

/**
 * For a _data function: adds the column "archive" with archives of these three entries. In each,
 * the data of "pkg/app.txt" is unreadable or contradicts the headers.
 */
void AddDamagedArchives();
