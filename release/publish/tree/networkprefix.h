// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/findings.h"

#include <QByteArray>
#include <QString>
#include <QVector>

/**
 * A network in the usual notation: 192.0.2.0/24, 2001:db8::/32, or a single address. The service
 * looks networks up by name and only at a few prefix lengths. Pure functions.
 */
class NetworkPrefix
{
public:
    /// The maximum of smaller networks that a network may be split into; each is a link in the
    /// tree.
    static constexpr int MaxLookups = 4096;

    /// Reads @p text. Fails when it is not a network, or too wide.
    static Failure Read(const QString &text, NetworkPrefix &prefix);

    /// Splits this network into networks of the next length that the service looks up.
    QVector<NetworkPrefix> Lookups() const;

    /// The name that release/nginx/updates/lookup.conf uses: "192.0.2_24", "2001:db8_32".
    QString Name() const;

    /// Whether this network contains every address of @p other.
    bool Contains(const NetworkPrefix &other) const;

private:
    bool IsIpv6() const;
    int LookupLength() const;

    QByteArray m_address; ///< 4 or 16 octets in network byte order
    int m_length = 0;     ///< in bits
};
