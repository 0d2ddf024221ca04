// SPDX-License-Identifier: LGPL-2.1-or-later

// What the index of expressions keeps for one of them at most.

#include "model/expressionnodes.hpp"
#include "model/footprint.hpp"

namespace qandor {
namespace {

// Of a list of entries, which begins with four places and doubles.
constexpr std::size_t place_in_list = 6 * sizeof(void *);

std::size_t copies_of_values(const AndList &conditions)
{
    static const std::size_t inside = std::string().capacity();
    std::size_t size = 0;
    for (Buckets buckets : {conditions.keyed(), conditions.wildcards()})
        for (std::size_t i = 0; i < considered(buckets); ++i)
            for (const key_value &condition : buckets[i])
                if (buckets[i].count() <= considered_values && condition.value.size() > inside)
                    size += block_size(condition.value.size() + 1);
    return size;
}

std::size_t count_conditions(const AndList &conditions)
{
    std::size_t count = 0;
    for (Buckets buckets : {conditions.keyed(), conditions.wildcards()})
        for (Bucket bucket : buckets)
            count += bucket.count();
    return count;
}

// How often it may be filed: once, or for each of the values that a key may have.
std::size_t count_entries(const AndList &conditions, std::size_t limit)
{
    std::size_t most = 1;
    for (Bucket bucket : conditions.keyed())
        if (bucket.count() <= considered_values)
            most = std::max<std::size_t>(most, bucket.count());
    return std::min(most, limit);
}

} // namespace

// Every entry may have a node of its own. The nodes above it are shared by three entries or more,
// unless the way forks.
std::size_t ExpressionIndex::most_memory_for(const inspectable &expression)
{
    const std::size_t of_node = block_size(sizeof(Node)) + HashChains::memory_for_record;
    const std::size_t of_value = block_size(sizeof(std::string));
    const std::size_t of_entry = block_size(sizeof(Filed)) + place_in_list;
    const std::size_t above = of_node + of_value + block_size(sizeof(Node::Children));
    std::size_t size = block_size(sizeof(FiledExpression)) + HashChains::memory_for_record;
    if (expression.and_lists.size() > most_alternatives)
        return size + place_in_list;
    for (const AndList &conditions : expression.and_lists) {
        std::size_t entries = count_entries(conditions, most_values(expression));
        std::size_t depth = std::min(2 * count_conditions(conditions), deepest);
        size += entries * (of_entry + of_node + of_value) + copies_of_values(conditions);
        size += depth * above / (entries > 1 ? 1 : Filed::few + 1);
    }
    return size;
}

} // namespace qandor
