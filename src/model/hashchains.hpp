// SPDX-License-Identifier: LGPL-2.1-or-later

// A table of records that are found by a hash and chained through themselves. It grows by one chain
// for each record that is added, so that no addition pays for all that were there before, and gives
// one back for each that is removed, once half of them are empty.
#pragma once

#include "platform/owners.hpp"

#include <glib.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace qandor {

// What a record begins with. One table may hold several kinds of them.
struct Chained {
    Chained(guint8 kind, guint32 hash) : hash(hash), kind(kind) {}

    Chained *next_in_chain = nullptr;
    guint32 hash;
    guint8 kind;
};

inline guint32 mixed(guint64 one, guint64 other)
{
    guint64 hash = (one ^ (other * 0x9E3779B97F4A7C15U)) * 0xFF51AFD7ED558CCDU;
    return static_cast<guint32>(hash ^ (hash >> 32));
}

class HashChains {
public:
    // The first record of the chain in which those of the hash stand, among others.
    Chained *chain(guint32 hash) const { return count_ ? *place(chain_of(hash)) : nullptr; }

    std::size_t size() const { return records_; }
    // What the table itself keeps for a record at most: a chain, and one that is to be.
    static constexpr std::size_t memory_for_record = 2 * sizeof(Chained *);

    void add(Chained &record);
    void remove(Chained &record);
    // Empties the table, and disposes of the records.
    void take_all(void (*dispose)(Chained *record));

private:
    // Chains stand in blocks of 8, 8, 16, 32 and so on, which stay where they are.
    static constexpr std::size_t first_block = 8;
    using Block = std::unique_ptr<Chained *[], Releaser<g_free>>;

    std::size_t chain_of(guint32 hash) const;
    Chained **place(std::size_t chain) const;
    void grow();
    void shrink();

    std::vector<Block> blocks_;
    std::size_t count_ = 0; // of chains
    std::size_t records_ = 0;
};

} // namespace qandor
