// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/statistics/accesslog.h"

#include <QtGlobal>

#include <array>
#include <deque>
#include <vector>

/**
 * What each of millions of networks has done with each package. Takes 8 bytes per pair, and 12 per
 * slot of a hash table that is at most three quarters full.
 */
class NetworkTable
{
public:
    /// One network and one package.
    struct Record {
        quint32 next;    ///< the same network's record of another package; 0: none
        quint16 package; ///< chosen by the caller
        quint8 marks;    ///< bits chosen by the caller
    };

    /// The record of @p network and @p package, which is created without marks if necessary. Valid
    /// as long as the table.
    Record &At(Network network, quint16 package);

    /// The first record of @p network, or null.
    Record *First(Network network);

    /// The next record of the same network, or null.
    Record *Next(const Record &record) { return RecordAt(record.next); }

    const std::deque<Record> &Records() const { return m_records; }

private:
    struct Part {
        std::vector<Network> networks;
        std::vector<quint32> records; ///< the number of the first record; 0: a free slot
        size_t used = 0;
    };

    // Each part grows separately, so that growing never needs the memory of the whole table twice.
    static constexpr size_t kParts = 256;

    Record *RecordAt(quint32 number) { return number == 0 ? nullptr : &m_records[number - 1]; }
    static size_t SlotOf(const Part &part, Network network, quint64 hash);
    static void Grow(Part &part);

    std::array<Part, kParts> m_parts;
    std::deque<Record> m_records; ///< a deque does not copy its items when it grows
};
