#pragma once

#include "release/publish/statistics/accesslog.h"

#include <QtGlobal>

#include <array>
#include <deque>
#include <vector>

/**
 * What each network has done with each package, for millions of networks: 8 bytes for each pair and
 * 12 for each slot of a hash table, of which three quarters at the most are used.
 */
class NetworkTable
{
public:
    /// One network and one package.
    struct Record {
        quint32 next;    ///< the record of another package and the same network; 0: none
        quint16 package; ///< a number that the caller gives
        quint8 marks;    ///< bits that the caller gives
    };

    /// The record of @p network and @p package, made without marks if there is none. Valid as long
    /// as the table is.
    Record &At(Network network, quint16 package);

    /// The first record of @p network, or nothing.
    Record *First(Network network);

    /// The next record of the same network, or nothing.
    Record *Next(const Record &record) { return RecordAt(record.next); }

    const std::deque<Record> &Records() const { return m_records; }

private:
    struct Part {
        std::vector<Network> networks;
        std::vector<quint32> records; ///< the number of the first record; 0 marks a free slot
        size_t used = 0;
    };

    // Each part grows by itself, so growing does not need the memory of the whole table again.
    static constexpr size_t kParts = 256;

    Record *RecordAt(quint32 number) { return number == 0 ? nullptr : &m_records[number - 1]; }
    static size_t SlotOf(const Part &part, Network network, quint64 hash);
    static void Grow(Part &part);

    std::array<Part, kParts> m_parts;
    std::deque<Record> m_records; ///< a deque never copies when it grows
};
