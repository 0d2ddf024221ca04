// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/recordcost.hpp"

#include <algorithm>

namespace qandor {
namespace {

struct Bound {
    guint32 RecordShape::*count;
    guint32 RecordBounds::*most;
    const char *text;
};

constexpr Bound bounds[] = {
    {&RecordShape::alternatives, &RecordBounds::alternatives, "alternatives"},
    {&RecordShape::empty_alternatives, &RecordBounds::empty_alternatives,
     "alternative without a condition"},
    {&RecordShape::key_values, &RecordBounds::key_values, "key-values"},
    {&RecordShape::longest_bucket, &RecordBounds::key_values_of_one_key, "key-values of one key"},
    {&RecordShape::tags, &RecordBounds::tags, "tags"},
};

// What each part takes at most: its place in the record, an entry of an index, and the blocks of
// its texts besides the bytes in them.
constexpr std::size_t memory_of_record = 2048;
constexpr std::size_t memory_of_alternative = 512;
constexpr std::size_t memory_of_key_value = 768;
constexpr std::size_t memory_of_tag = 160;
constexpr std::size_t memory_of_attribute = 64;

} // namespace

std::optional<std::string> bound_passed_by(const RecordShape &shape,
                                           const std::vector<std::string_view> &key_names)
{
    for (const Bound &bound : bounds)
        if (shape.*bound.count > record_bounds.*bound.most)
            return "A record may have " + std::to_string(record_bounds.*bound.most) + " " +
                   bound.text;
    auto is_long = [](std::string_view name) { return name.size() > record_bounds.key_name_bytes; };
    if (std::ranges::any_of(key_names, is_long))
        return "The name of a key may have " + std::to_string(record_bounds.key_name_bytes) +
               " bytes";
    return std::nullopt;
}

// The bytes of texts stand in the record and in the index.
RecordCost cost_of(const RecordShape &shape, std::size_t bytes)
{
    std::size_t memory = memory_of_record + 2 * bytes;
    memory += shape.alternatives * memory_of_alternative;
    memory += shape.key_values * memory_of_key_value;
    memory += shape.tags * memory_of_tag;
    memory += shape.attributes * memory_of_attribute;
    return {bytes, memory};
}

} // namespace qandor
