// SPDX-License-Identifier: LGPL-2.1-or-later

// Records that are written to cost much, for the table of the index.
#pragma once

#include "bench/indexsample.hpp"

#include <initializer_list>

namespace qandor::bench {

inline InspectableOwner
container_of(std::initializer_list<std::pair<const char *, const char *>> values)
{
    InspectableOwner made(inspectable_new(IT_EVENT_DECLARATION));
    for (const auto &[key, value] : values)
        inspectable_add_key_value(made.get(), key, FALSE, value, !value, FALSE);
    return made;
}

inline inspectable *an_open_value_first(unsigned i, unsigned)
{
    std::string number = std::to_string(i);
    return Conditions().is("topic0", "T").is("level", number).is("id", number);
}

inline inspectable *common_negated_first(unsigned i, unsigned)
{
    Conditions conditions;
    for (unsigned j = 0; j < 33; ++j)
        conditions.is_not(text("x", j), "no");
    return conditions.is("id", std::to_string(i));
}

// 16 bytes whose second half undoes what multiplying and folding made of the first.
inline inspectable *values_of_one_plain_hash(unsigned i, unsigned)
{
    auto mix = [](guint64 hash, guint64 word) {
        hash = (hash ^ word) * 0xFF51AFD7ED558CCDU;
        return hash ^ (hash >> 32);
    };
    // No NUL among them, which would end the text.
    static guint64 next = 0x4141414141414141U;
    for (;; ++next) {
        guint64 words[2] = {next, mix(16, next) ^ 42};
        std::string value(reinterpret_cast<const char *>(words), sizeof words);
        if (value.find('\0') == std::string::npos) {
            ++next;
            return Conditions().is("a", value).is_not("b", std::to_string(i));
        }
    }
}

inline inspectable *many_keys_of_many_values(unsigned, unsigned)
{
    Conditions conditions;
    for (unsigned key = 0; key < 32; ++key)
        for (unsigned value = 0; value < 256; ++value)
            conditions.is(text("key", key), std::to_string(value));
    return conditions;
}

// Of one key, or of any.
inline InspectableOwner many_values(unsigned count, const char *prefix, bool any_key)
{
    InspectableOwner made(inspectable_new(IT_SUBSCRIBE_EXPRESSION));
    for (unsigned i = 0; i < count; ++i)
        inspectable_add_key_value(made.get(), any_key ? nullptr : "a", any_key,
                                  text(prefix, i).c_str(), FALSE, FALSE);
    return made;
}

inline InspectableOwner many_alternatives(unsigned count)
{
    Conditions conditions;
    for (unsigned i = 0; i < count; ++i) {
        if (i > 0)
            conditions.either();
        conditions.is_not("c", std::to_string(i));
    }
    return InspectableOwner(conditions);
}

struct WorstSet {
    const char *name;
    inspectable *(*make)(unsigned i, unsigned size);
    InspectableOwner (*make_container)();
    unsigned size;
};

inline const WorstSet worst_sets[] = {
    {"an open value before the telling one", an_open_value_first,
     [] {
         return container_of({{"topic0", "T"}, {"level", nullptr}, {"id", "7"}});
     },
     10000},
    {"33 common negated conditions first", common_negated_first,
     [] {
         return container_of({{"topic0", "T"}, {"id", nullptr}});
     },
     10000},
    {"values of one plain hash", values_of_one_plain_hash,
     [] {
         return container_of({{"a", nullptr}});
     },
     10000},
    {"32 keys of 256 values", many_keys_of_many_values,
     [] {
         return container_of({{"key0", "7"}});
     },
     5},
};

} // namespace qandor::bench
