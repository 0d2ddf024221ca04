// SPDX-License-Identifier: LGPL-2.1-or-later

// Inspectables as subjects of the grammar: one that is written, one that is read.
#pragma once

#include "model/inspectable.hpp"
#include "model/keyvaluewire.hpp"
#include "platform/check.hpp"

#include <algorithm>

namespace qandor {

struct WrittenBucket {
    Bucket bucket;
    std::size_t count() const { return bucket.count(); }
    template <class Visit> void each(guint32, Visit visit) const
    {
        for (const key_value &key_value : bucket)
            visit(WrittenKeyValue(key_value));
    }
};

struct WrittenBuckets {
    Buckets buckets;
    std::size_t count() const { return buckets.size(); }
    template <class Visit> void each(guint32, Visit visit) const
    {
        for (Bucket bucket : buckets)
            visit(WrittenBucket{bucket});
    }
};

struct WrittenAndList {
    const AndList &list;
    WrittenBuckets keyed() const { return {list.keyed()}; }
    WrittenBuckets wildcards() const { return {list.wildcards()}; }
};

struct WrittenInspectable {
    explicit WrittenInspectable(const inspectable &inspect)
        : inspect(inspect), type(inspect.type), internal(inspect.internal)
    {
    }
    std::size_t count() const { return inspect.and_lists.size(); }
    void begin() const {}
    template <class Visit> void each(guint32, Visit visit) const
    {
        for (const AndList &list : inspect.and_lists)
            visit(WrittenAndList{list});
    }
    WrittenTags tags() const { return WrittenTags(inspect.tags); }

    const inspectable &inspect;
    const guint32 type;
    const gint internal;
};

// Reads the buckets of one table of an and-list. A key (a value of key wildcards) that comes twice
// takes the place of the first.
struct ReadBuckets {
    struct Part {
        ReadBuckets &table;

        std::size_t count() const { return 0; }
        template <class Visit> void each(guint32 count, Visit visit)
        {
            CHECK_TEXT(count > 0, "bucket->key_values != NULL");
            Bucket bucket(nullptr);
            for (guint32 i = 0; i < count; ++i) {
                ReadKeyValue reading(table.attributes, &table.list);
                visit(reading);
                table.check(*reading.made, bucket);
                if (bucket)
                    table.list.extend(bucket, reading.made);
                else
                    bucket = table.list.begin_bucket(reading.made);
            }
        }
    };

    AndList &list;
    Attributes::Maker &attributes;
    bool wildcard;

    std::size_t count() const { return 0; }
    template <class Visit> void each(guint32 count, Visit visit)
    {
        // A count of strangers is no reason to make room for it all at once.
        constexpr guint32 trusted = 64;
        if (!wildcard)
            list.reserve(std::min(count, trusted));
        for (guint32 i = 0; i < count; ++i)
            visit(Part{*this});
    }
    void check(const key_value &key_value, Bucket bucket) const;
};

// Those of key wildcards, which few records have: no part of the road of every event.
struct ReadWildcards : ReadBuckets {
    template <class Visit> [[gnu::noinline]] void each(guint32 count, Visit visit)
    {
        ReadBuckets::each(count, visit);
    }
};

struct ReadAndList {
    AndList &list;
    Attributes::Maker &attributes;
    ReadBuckets keyed() { return {list, attributes, false}; }
    ReadWildcards wildcards() { return {{list, attributes, true}}; }
};

struct ReadInspectable {
    explicit ReadInspectable(inspectable &made)
        : type(IT_EVENT), internal(made.internal), made(made)
    {
    }
    std::size_t count() const { return 0; }
    void begin();
    template <class Visit> void each(guint32 count, Visit visit)
    {
        for (guint32 i = 0; i < count; ++i)
            visit(ReadAndList{made.and_lists.add(), attributes});
    }
    auto tags()
    {
        return ReadTags([this](std::string_view tag) { made.tags.emplace_back(tag); });
    }

    guint32 type;
    gint &internal;
    inspectable &made;
    Attributes::Maker attributes{};
};

} // namespace qandor
