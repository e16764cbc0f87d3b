#pragma once

#include <QByteArray>

class ZipMaker;

/// Text that packs to less than its size.
QByteArray SomeText();

/// Bytes that cannot be packed, the same ones each time.
QByteArray SomeNoise(int size);

/// Adds the folder "pkg", then "pkg/app.txt" with SomeText(), then "pkg/after.txt" with "after".
void AddThreeEntries(ZipMaker &zip);

/**
 * For a _data function: the column "archive" with archives of these three entries, in each of which
 * the data of "pkg/app.txt" cannot be had or is not what the headers say.
 */
void AddDamagedArchives();
