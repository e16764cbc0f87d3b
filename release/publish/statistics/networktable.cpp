// SPDX-License-Identifier: MIT
#include "release/publish/statistics/networktable.h"

#include <utility>

namespace
{

constexpr size_t kFirstSlots = 16; // a power of two

/// Addresses differ only in few bits. The finalizer of SplitMix64 spreads them over all bits.
/// Source: https://prng.di.unimi.it/splitmix64.c
quint64 HashOf(Network network)
{
    quint64 hash = network + 0x9e3779b97f4a7c15;
    hash = (hash ^ (hash >> 30)) * 0xbf58476d1ce4e5b9;
    hash = (hash ^ (hash >> 27)) * 0x94d049bb133111eb;
    return hash ^ (hash >> 31);
}

/// The highest byte, because the slot in the part depends on the lowest bits.
size_t PartOf(quint64 hash)
{
    return size_t(hash >> 56);
}

} // namespace

NetworkTable::Record &NetworkTable::At(Network network, quint16 package)
{
    const quint64 hash = HashOf(network);
    Part &part = m_parts[PartOf(hash)];
    if (part.used >= part.records.size() / 4 * 3)
        Grow(part);
    const size_t slot = SlotOf(part, network, hash);
    for (Record *record = RecordAt(part.records[slot]); record; record = Next(*record)) {
        if (record->package == package)
            return *record;
    }
    if (part.records[slot] == 0) {
        part.networks[slot] = network;
        ++part.used;
    }
    m_records.push_back({part.records[slot], package, 0});
    part.records[slot] = quint32(m_records.size());
    return m_records.back();
}

NetworkTable::Record *NetworkTable::First(Network network)
{
    const quint64 hash = HashOf(network);
    const Part &part = m_parts[PartOf(hash)];
    if (part.records.empty())
        return nullptr;
    return RecordAt(part.records[SlotOf(part, network, hash)]);
}

/// The slot of @p network, or a free slot for it, which always exists.
size_t NetworkTable::SlotOf(const Part &part, Network network, quint64 hash)
{
    const size_t mask = part.records.size() - 1;
    size_t slot = size_t(hash) & mask;
    while (part.records[slot] != 0 && part.networks[slot] != network)
        slot = (slot + 1) & mask;
    return slot;
}

void NetworkTable::Grow(Part &part)
{
    Part larger;
    const size_t slots = part.records.empty() ? kFirstSlots : 2 * part.records.size();
    larger.networks.resize(slots);
    larger.records.resize(slots);
    larger.used = part.used;
    for (size_t slot = 0; slot < part.records.size(); ++slot) {
        if (part.records[slot] == 0)
            continue;
        const Network network = part.networks[slot];
        const size_t target = SlotOf(larger, network, HashOf(network));
        larger.networks[target] = network;
        larger.records[target] = part.records[slot];
    }
    part = std::move(larger);
}
