// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QtEndian>

#include <cstddef>
#include <cstdint>

/// Reads values from an input, from its first byte on. After its end all bytes are zero.
class InputReader
{
public:
    InputReader(const uint8_t *data, size_t size)
        : m_rest(reinterpret_cast<const char *>(data), int(size))
    {
    }

    /// The next bytes as a number, the lowest byte first.
    template <class Number> Number Take()
    {
        QByteArray bytes = Bytes(int(sizeof(Number)));
        bytes.append(QByteArray(int(sizeof(Number)) - bytes.size(), '\0'));
        return qFromLittleEndian<Number>(bytes.constData());
    }

    /// The next @p count bytes, or those that are left.
    QByteArray Bytes(int count)
    {
        const QByteArray bytes = m_rest.left(count);
        m_rest.remove(0, count);
        return bytes;
    }

    QByteArray Rest() { return Bytes(m_rest.size()); }

private:
    QByteArray m_rest;
};
