// SPDX-License-Identifier: MIT
#include "release/publish/tree/networkprefix.h"

#include <QHostAddress>
#include <QStringList>

#include <cstring>

namespace
{

// The prefix lengths at which the service looks networks up; the same as in lookup.conf.
const QVector<int> kIpv4Lengths{8, 16, 24, 32};
const QVector<int> kIpv6Lengths{16, 32, 48, 64, 128};

// Anything wider is a large part of the Internet; shares are the means for that.
constexpr int kShortestIpv4 = 8;
constexpr int kShortestIpv6 = 16;

constexpr int kIpv4Bits = 32;
constexpr int kIpv6Bits = 128;
constexpr int kBitsPerOctet = 8;
constexpr int kBitsPerGroup = 16;

/// How much shorter than a looked-up length a prefix may be: 2 to the power of this is MaxLookups.
constexpr int kMaxSpareBits = 12;
static_assert(1 << kMaxSpareBits == NetworkPrefix::MaxLookups);

QByteArray Octets(const QHostAddress &address)
{
    if (address.protocol() == QAbstractSocket::IPv6Protocol) {
        const Q_IPV6ADDR octets = address.toIPv6Address();
        return {reinterpret_cast<const char *>(octets.c), kIpv6Bits / kBitsPerOctet};
    }
    QByteArray octets;
    const quint32 number = address.toIPv4Address();
    for (int shift = kIpv4Bits - kBitsPerOctet; shift >= 0; shift -= kBitsPerOctet)
        octets.append(char(number >> shift));
    return octets;
}

/// Adds @p number to the first @p length bits, which are whole octets, of @p octets.
QByteArray Sum(QByteArray octets, int length, int number)
{
    for (int index = length / kBitsPerOctet - 1; index >= 0; --index) {
        number += uchar(octets.at(index));
        octets[index] = char(number);
        number >>= kBitsPerOctet;
    }
    return octets;
}

Finding Wrong(const QString &message)
{
    return {QStringLiteral("network"), QString(), message};
}

} // namespace

Failure NetworkPrefix::Read(const QString &text, NetworkPrefix &prefix)
{
    const QString address = text.section(QLatin1Char('/'), 0, 0);
    const QHostAddress written(address);
    const bool isIpv6 = written.protocol() == QAbstractSocket::IPv6Protocol;
    bool isLength = true;
    const int bits = isIpv6 ? kIpv6Bits : kIpv4Bits;
    const int length =
        text.contains(QLatin1Char('/')) ? text.section(QLatin1Char('/'), 1).toInt(&isLength) : bits;
    // QHostAddress also accepts "192.0".
    if (written.isNull() || !isLength || length < 0 || length > bits ||
        (!isIpv6 && address.count(QLatin1Char('.')) != 3)) {
        return Wrong(
            QStringLiteral("\"%1\" is not a network; write it like 192.0.2.0/24 or 2001:db8::/32")
                .arg(text));
    }
    const QHostAddress first =
        QHostAddress::parseSubnet(QStringLiteral("%1/%2").arg(written.toString()).arg(length))
            .first;
    if (first != written) {
        return Wrong(QStringLiteral("\"%1\" is an address inside a network; write %2/%3 for the "
                                    "network, or the address alone")
                         .arg(text, first.toString())
                         .arg(length));
    }
    const int shortest = isIpv6 ? kShortestIpv6 : kShortestIpv4;
    if (length < shortest) {
        return Wrong(QStringLiteral("\"%1\" is wider than /%2; roll out to a share instead")
                         .arg(text)
                         .arg(shortest));
    }
    prefix.m_address = Octets(first);
    prefix.m_length = length;
    const int narrowest = prefix.LookupLength() - kMaxSpareBits;
    if (length < narrowest) {
        return Wrong(QStringLiteral("\"%1\" is too wide; write it as several networks with a "
                                    "length of at least %2")
                         .arg(text)
                         .arg(narrowest));
    }
    return {};
}

QVector<NetworkPrefix> NetworkPrefix::Lookups() const
{
    QVector<NetworkPrefix> networks;
    NetworkPrefix network;
    network.m_length = LookupLength();
    for (int number = 0; number < 1 << (network.m_length - m_length); ++number) {
        network.m_address = Sum(m_address, network.m_length, number);
        networks.append(network);
    }
    return networks;
}

QString NetworkPrefix::Name() const
{
    const QString length = QString::number(m_length);
    if (m_length == kIpv6Bits) {
        Q_IPV6ADDR octets;
        std::memcpy(octets.c, m_address.constData(), sizeof octets.c);
        return QHostAddress(octets).toString() + QLatin1Char('_') + length;
    }
    QStringList parts;
    for (int index = 0; index < m_length / kBitsPerOctet; ++index) {
        const int octet = uchar(m_address.at(index));
        if (!IsIpv6()) {
            parts.append(QString::number(octet));
        } else if (index % 2 == 0) {
            const int group = octet << kBitsPerOctet | uchar(m_address.at(index + 1));
            parts.append(QString::number(group, kBitsPerGroup));
        }
    }
    return parts.join(IsIpv6() ? QLatin1Char(':') : QLatin1Char('.')) + QLatin1Char('_') + length;
}

bool NetworkPrefix::Contains(const NetworkPrefix &other) const
{
    if (IsIpv6() != other.IsIpv6() || other.m_length < m_length)
        return false;
    const int whole = m_length / kBitsPerOctet;
    if (m_address.left(whole) != other.m_address.left(whole))
        return false;
    const int rest = kBitsPerOctet - m_length % kBitsPerOctet;
    return rest == kBitsPerOctet ||
           uchar(m_address.at(whole)) >> rest == uchar(other.m_address.at(whole)) >> rest;
}

bool NetworkPrefix::IsIpv6() const
{
    return m_address.size() == kIpv6Bits / kBitsPerOctet;
}

int NetworkPrefix::LookupLength() const
{
    int lookupLength = 0;
    for (const int length : IsIpv6() ? kIpv6Lengths : kIpv4Lengths) {
        lookupLength = length;
        if (length >= m_length)
            break;
    }
    return lookupLength;
}
