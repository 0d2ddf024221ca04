// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/hashchains.hpp"

#include <bit>

namespace qandor {

// As many low bits of the hash as give a chain that is there.
std::size_t HashChains::chain_of(guint32 hash) const
{
    std::size_t half = std::bit_floor(count_);
    std::size_t chain = hash & (2 * half - 1);
    return chain < count_ ? chain : chain - half;
}

Chained **HashChains::place(std::size_t chain) const
{
    auto block = static_cast<std::size_t>(std::bit_width(chain / first_block));
    return &blocks_[block][block == 0 ? chain : chain - (first_block << (block - 1))];
}

// The new chain takes from an old one what now has one bit more to go by.
void HashChains::grow()
{
    std::size_t half = std::bit_floor(count_);
    if (count_ == half)
        blocks_.emplace_back(g_new0(Chained *, half));
    Chained **from = place(count_ - half);
    Chained **to = place(count_);
    ++count_;
    while (*from) {
        if ((*from)->hash & half) {
            *to = *from;
            to = &(*to)->next_in_chain;
            *from = *to;
        } else {
            from = &(*from)->next_in_chain;
        }
    }
    *to = nullptr;
}

// The last chain goes back to the one that it came from.
void HashChains::shrink()
{
    Chained **from = place(--count_);
    std::size_t half = std::bit_floor(count_);
    Chained **to = place(count_ - half);
    while (*to)
        to = &(*to)->next_in_chain;
    *to = *from;
    if (count_ == half)
        blocks_.pop_back();
}

void HashChains::add(Chained &record)
{
    if (count_ == 0) {
        blocks_.emplace_back(g_new0(Chained *, first_block));
        count_ = first_block;
    }
    if (++records_ > count_)
        grow();
    Chained **first = place(chain_of(record.hash));
    record.next_in_chain = *first;
    *first = &record;
}

void HashChains::remove(Chained &record)
{
    Chained **at = place(chain_of(record.hash));
    while (*at != &record)
        at = &(*at)->next_in_chain;
    *at = record.next_in_chain;
    if (--records_ < count_ / 2 && count_ > first_block)
        shrink();
}

void HashChains::take_all(void (*dispose)(Chained *record))
{
    for (std::size_t chain = 0; chain < count_; ++chain) {
        Chained *next;
        for (Chained *record = *place(chain); record; record = next) {
            next = record->next_in_chain;
            dispose(record);
        }
    }
    blocks_.clear();
    count_ = 0;
    records_ = 0;
}

} // namespace qandor
