// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

/// @p plain compressed in the gzip format (RFC 1952).
QByteArray Gzip(const QByteArray &plain);

/**
 * A valid zip archive with the file "pkg/zeros.bin" of @p size zero bytes. It takes about a
 * thousandth of that.
 */
QByteArray ZipOfZeros(quint32 size);
