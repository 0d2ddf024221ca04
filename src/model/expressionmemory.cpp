// SPDX-License-Identifier: LGPL-2.1-or-later

// What the index of expressions keeps for one of them at most.

#include "model/expressionnodes.hpp"
#include "model/footprint.hpp"

namespace qandor {
namespace {

// Of a list of entries, which begins with four places and doubles.
constexpr std::size_t place_in_list = 6 * sizeof(void *);

std::size_t copy_of(const std::string &text)
{
    return block_size(sizeof(std::string)) + block_size(text.size() + 1);
}

} // namespace

std::size_t ExpressionIndex::most_memory_for(const inspectable &expression)
{
    const std::size_t of_node = block_size(sizeof(Node)) + block_size(sizeof(Node::Children)) +
                                HashChains::memory_for_record;
    const std::size_t of_entry = block_size(sizeof(Filed)) + place_in_list + of_node;
    std::size_t size = block_size(sizeof(FiledExpression)) + HashChains::memory_for_record;
    for (const AndList &conditions : expression.and_lists) {
        size += of_entry;
        for (Buckets buckets : {conditions.keyed(), conditions.wildcards()})
            for (Bucket bucket : buckets)
                for (const key_value &condition : bucket)
                    size += of_entry + copy_of(condition.value);
    }
    return size;
}

} // namespace qandor
