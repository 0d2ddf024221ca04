// SPDX-License-Identifier: LGPL-2.1-or-later

// What two plain records have in common.

#include "unit/model/plainrecords.hpp"

#include <algorithm>
#include <functional>
#include <tuple>

namespace qandor::test {
namespace {

auto written_fields(const PlainKeyValue &one)
{
    return std::tie(one.key, one.key_wildcard, one.name_space, one.key_nice_name, one.value,
                    one.value_wildcard, one.value_nice_name, one.value_user_string,
                    one.complex_type_name, one.negated, one.value_type, one.tags);
}

template <class Container, class AreSame>
bool are_permuted(const Container &one, const Container &other, AreSame are_same)
{
    return std::is_permutation(one.begin(), one.end(), other.begin(), other.end(), are_same);
}

bool are_equal(const PlainBuckets &one, const PlainBuckets &other)
{
    return are_permuted(one, other, [](const auto &bucket1, const auto &bucket2) {
        return bucket1.first == bucket2.first &&
               are_permuted(bucket1.second, bucket2.second,
                            [](const auto &x, const auto &y) { return are_equal(x, y); });
    });
}

} // namespace

bool PlainKeyValue::operator==(const PlainKeyValue &other) const
{
    return written_fields(*this) == written_fields(other);
}

bool PlainInspectable::operator==(const PlainInspectable &other) const
{
    return std::tie(type, internal, and_lists, tags) ==
           std::tie(other.type, other.internal, other.and_lists, other.tags);
}

PlainBucket &PlainBuckets::operator[](const std::string &name)
{
    for (Named &bucket : buckets_)
        if (bucket.first == name)
            return bucket.second;
    return buckets_.emplace_back(name, PlainBucket()).second;
}

const PlainBucket *PlainBuckets::find(const std::string &name) const
{
    for (const Named &bucket : buckets_)
        if (bucket.first == name)
            return &bucket.second;
    return nullptr;
}

bool PlainBuckets::operator==(const PlainBuckets &other) const
{
    return are_permuted(buckets_, other.buckets_, std::equal_to<>());
}

std::vector<std::string> distinct(const std::vector<std::string> &tags)
{
    std::vector<std::string> result;
    for (const std::string &tag : tags)
        if (std::find(result.begin(), result.end(), tag) == result.end())
            result.push_back(tag);
    return result;
}

PlainInspectable with_distinct_tags(PlainInspectable content)
{
    for (PlainAndList &list : content.and_lists)
        for (PlainBuckets *buckets : {&list.keyed, &list.wildcards})
            for (auto &[name, bucket] : *buckets)
                for (PlainKeyValue &record : bucket)
                    record.tags = distinct(record.tags);
    return content;
}

bool are_equal(const PlainKeyValue &one, PlainKeyValue other)
{
    if (!are_permuted(one.tags, other.tags, std::equal_to<>()))
        return false;
    other.tags = one.tags;
    return one == other;
}

bool are_equal(const PlainInspectable &one, const PlainInspectable &other)
{
    return one.type == other.type && one.internal == other.internal &&
           are_permuted(one.tags, other.tags, std::equal_to<>()) &&
           are_permuted(
               one.and_lists, other.and_lists, [](const PlainAndList &x, const PlainAndList &y) {
                   return are_equal(x.keyed, y.keyed) && are_equal(x.wildcards, y.wildcards);
               });
}

} // namespace qandor::test
