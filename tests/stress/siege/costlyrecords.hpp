// SPDX-License-Identifier: LGPL-2.1-or-later

// Well-formed records whose shape makes them expensive to store or to match, written byte by byte.
// docs/wire-format.md describes the fields.
#pragma once

#include <glib.h>

#include <string>

namespace qandor::test {

class CostlyRecord {
public:
    // A condition, or a key with its value. A key that is nullptr is a key wildcard.
    struct KeyValue {
        const char *key;
        std::string value;
        bool negated = false;
        guint tags = 0;
    };

    static std::string key_value(const KeyValue &of)
    {
        std::string key = of.key ? of.key : "";
        return u8(0xF5) + text(key) + u8(!of.key) + text("") + text("") + text(of.value) + u8(0) +
               text("") + text("") + text("") + u8(of.negated) + u8(4) + tags(of.tags);
    }
    static std::string bucket(const std::string &key_values, guint count = 1)
    {
        return u8(0xF4) + u16(count) + key_values;
    }
    static std::string and_list(const std::string &buckets, guint count,
                                const std::string &wild = "", guint wild_count = 0)
    {
        return u8(0xF3) + u16(count) + buckets + u16(wild_count) + wild;
    }

    static std::string declaration(const std::string &and_list, guint32 local_id, guint count = 0)
    {
        return u8(0xF0) + u32(0) + u32(local_id) + u32(0) + u8(0) + u32(0) + u32(0) +
               inspectable(0, and_list, 1, count);
    }
    static std::string expression(const std::string &and_lists, guint count)
    {
        return u8(0xF6) + u32(0) + text("") + text("") + u32(0) + u8(0) +
               inspectable(2, and_lists, count, 0);
    }

    // An expression of @count alternatives, each without a condition.
    static std::string empty_alternatives(guint count)
    {
        return expression(repeated(and_list("", 0), count), count);
    }
    // An expression of @count alternatives, each with one negated condition.
    static std::string negated_alternatives(guint count)
    {
        std::string one = and_list(bucket(key_value({"a", "x", true})), 1);
        return expression(repeated(one, count), count);
    }
    // A declaration with @count empty tags on its topic, or on the object.
    static std::string tagged_key(guint count, guint32 local_id)
    {
        return declaration(and_list(bucket(key_value({"topic0", "T", false, count})), 1), local_id);
    }
    static std::string tagged_object(guint count, guint32 local_id)
    {
        return declaration(and_list(topic(), 1), local_id, count);
    }
    // A bucket of @count key-values: one key, and values that begin with the prefix.
    static std::string values(const char *key, guint count, const char *prefix)
    {
        std::string all;
        for (guint i = 0; i < count; ++i)
            all += key_value({key, prefix + std::to_string(10000 + i)});
        return bucket(all, count);
    }
    static std::string many_values(guint count, guint32 local_id)
    {
        return declaration(and_list(topic() + values("k", count, "d"), 2), local_id);
    }
    // An expression with @count conditions on the key of many_values(); none of them matches.
    static std::string many_conditions(guint count)
    {
        return expression(and_list(values("k", count, "e"), 1), 1);
    }
    // An expression with @count key wildcards, each with a value of many_values().
    static std::string many_key_wildcards(guint count)
    {
        std::string all;
        for (guint i = 0; i < count; ++i)
            all += bucket(key_value({nullptr, "d" + std::to_string(10000 + i)}));
        return expression(and_list("", 0, all, count), 1);
    }

private:
    static std::string topic() { return bucket(key_value({"topic0", "T"})); }
    static std::string inspectable(guint type, const std::string &and_lists, guint count,
                                   guint tag_count)
    {
        return u8(0xF2) + u16(count) + u8(type) + u8(0) + and_lists + tags(tag_count);
    }
    static std::string repeated(const std::string &part, guint count)
    {
        std::string all;
        all.reserve(part.size() * count);
        for (guint i = 0; i < count; ++i)
            all += part;
        return all;
    }
    static std::string tags(guint count) { return u16(count) + repeated(u16(0), count); }
    static std::string text(const std::string &text)
    {
        return u16(static_cast<guint>(text.size())) + text;
    }
    static std::string u8(guint number) { return std::string(1, static_cast<char>(number)); }
    static std::string u16(guint number) { return u8(number & 0xFF) + u8(number >> 8); }
    static std::string u32(guint32 number) { return u16(number & 0xFFFF) + u16(number >> 16); }
};

} // namespace qandor::test
