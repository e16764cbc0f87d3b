#pragma once

#include <QByteArray>

/**
 * Takes from @p body what it was packed with on its way, for an answer with the header
 * Content-Encoding: @p coding (RFC 9110, 8.4.1): "gzip", or "deflate" with or without its zlib
 * wrapping. A body of any other coding stays as it is. False when the packed data are damaged or
 * make more than @p limit bytes; memory never grows beyond those. Any thread.
 */
bool DecodeContent(const QByteArray &coding, qint64 limit, QByteArray &body);
