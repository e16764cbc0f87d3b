#pragma once

#include "release/publish/base/findings.h"

#include <QByteArray>
#include <QString>
#include <QVector>

/**
 * A network as operators write it: 192.0.2.0/24, 2001:db8::/32, or a single address. The service
 * looks networks up by name, at a few lengths only. Pure.
 */
class NetworkPrefix
{
public:
    /// A network may be looked up as this many smaller ones at most: each is a link in the tree.
    static constexpr int MaxLookups = 4096;

    /// Reads @p text; the finding tells what is wrong with it.
    static Failure Read(const QString &text, NetworkPrefix &prefix);

    /// The networks of a length that the service looks up which make up this one.
    QVector<NetworkPrefix> Lookups() const;

    /// As release/nginx/updates/lookup.conf writes it: "192.0.2_24", "2001:db8_32".
    QString Name() const;

    /// Whether every address of @p other lies in this one.
    bool Holds(const NetworkPrefix &other) const;

private:
    bool IsIpv6() const;
    int LookupLength() const;

    QByteArray m_address; ///< 4 or 16 octets in network order
    int m_length = 0;     ///< in bits
};
