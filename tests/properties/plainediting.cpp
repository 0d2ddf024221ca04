// SPDX-License-Identifier: LGPL-2.1-or-later

#include "properties/plainediting.hpp"

#include <algorithm>

namespace qandor::test {

bool has(const std::vector<std::string> &tags, const std::string &tag)
{
    return std::find(tags.begin(), tags.end(), tag) != tags.end();
}

const PlainKeyValue *find(const PlainInspectable &content, const std::string &key)
{
    const PlainBucket *bucket = content.and_lists.back().keyed.find(key);
    return bucket ? &bucket->front() : nullptr;
}

PlainKeyValue *find(PlainInspectable &content, const std::string &key)
{
    return const_cast<PlainKeyValue *>(find(std::as_const(content), key));
}

PlainKeyValue made(const std::string &key, const std::string &value, bool negated)
{
    PlainKeyValue one;
    one.key = key;
    one.value = value;
    one.negated = negated;
    return one;
}

PlainKeyValue made_open(const std::string &key, bool negated)
{
    PlainKeyValue one = made(key, "", negated);
    one.value_wildcard = 1;
    one.settable = true;
    return one;
}

PlainKeyValue made_for_any_key(const std::string &value, bool negated)
{
    PlainKeyValue one = made("", value, negated);
    one.key_wildcard = 1;
    return one;
}

// A declaration keeps only the latest key-value of a key.
void add(PlainInspectable &content, const PlainKeyValue &added)
{
    PlainAndList &current = content.and_lists.back();
    content.has_positions = true;
    if (added.key_wildcard) {
        current.wildcards[added.value].push_back(added);
        return;
    }
    PlainBucket &bucket = current.keyed[added.key];
    if (content.type == Declaration)
        bucket.clear();
    bucket.push_back(added);
}

bool begin_alternative(PlainInspectable &content)
{
    if (content.type != Expression)
        return false;
    content.and_lists.emplace_back();
    return true;
}

bool set_value(PlainInspectable &content, const std::string &key, const std::string &text)
{
    PlainKeyValue *one = find(content, key);
    if (!one || !one->settable)
        return false;
    one->value_wildcard = 0;
    one->value = text;
    return true;
}

bool add_key_tag(PlainInspectable &content, const std::string &key, const std::string &tag)
{
    PlainKeyValue *one = find(content, key);
    if (one && !has(one->tags, tag))
        one->tags.push_back(tag);
    return one;
}

bool has_key_with_tag(const PlainInspectable &content, const std::string &tag)
{
    if (content.has_positions)
        for (const auto &[key, bucket] : content.and_lists.back().keyed)
            if (has(bucket.front().tags, tag))
                return true;
    return false;
}

bool is_complete(const PlainInspectable &content)
{
    for (const auto &[key, bucket] : content.and_lists.back().keyed)
        if (bucket.front().settable && bucket.front().value_wildcard)
            return false;
    return true;
}

PlainInspectable copied(const PlainInspectable &content, int type)
{
    PlainInspectable copy = with_distinct_tags(content);
    copy.type = type;
    copy.has_positions = true;
    return copy;
}

bool is_readable_from_xml(const PlainInspectable &content, int type)
{
    return content.and_lists.size() == 1 || type == Expression;
}

PlainInspectable read_from_xml(const PlainInspectable &content, int type)
{
    PlainInspectable read;
    read.type = type;
    read.tags = content.tags;
    read.and_lists.clear();
    for (const PlainAndList &list : with_distinct_tags(content).and_lists) {
        read.and_lists.emplace_back();
        for (const PlainBuckets *buckets : {&list.keyed, &list.wildcards})
            for (const auto &[name, bucket] : *buckets)
                for (PlainKeyValue one : bucket) {
                    one.settable = one.value_wildcard != 0;
                    add(read, one);
                }
    }
    return read;
}

PlainInspectable expression_for(const PlainInspectable &state, bool inverted)
{
    PlainInspectable expression;
    expression.type = Expression;
    for (const auto &[key, bucket] : state.and_lists.back().keyed) {
        const PlainKeyValue &one = bucket.front();
        if (inverted && has(one.tags, state_key_tag)) {
            add(expression, made_open(key));
            add(expression, made(key, one.value, true));
        } else {
            add(expression, made(key, one.value));
        }
        find(expression, key)->name_space = one.name_space;
    }
    return expression;
}

} // namespace qandor::test
