#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

/// @p plain as gzip writes it (RFC 1952).
QByteArray Gzip(const QByteArray &plain);

/**
 * A zip archive with the folder "pkg" and in it the file "zeros.bin", which has @p size zero bytes
 * and takes about a thousandth of that. Its sizes and its checksum are true.
 */
QByteArray ZipOfZeros(quint32 size);
