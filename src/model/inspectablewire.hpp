// SPDX-License-Identifier: LGPL-2.1-or-later

// Inspectables as subjects of the grammar: one that is written, one that is read.
#pragma once

#include "model/inspectable.hpp"
#include "model/keyvaluewire.hpp"
#include "platform/check.hpp"

namespace qandor {

struct WrittenBucket {
    const Bucket &bucket;
    std::size_t count() const { return bucket.count(); }
    template <class Visit> void each(guint32, Visit visit) const
    {
        for (const key_value &key_value : bucket)
            visit(WrittenKeyValue(key_value));
    }
};

struct WrittenBuckets {
    const std::vector<Bucket> &buckets;
    std::size_t count() const { return buckets.size(); }
    template <class Visit> void each(guint32, Visit visit) const
    {
        for (const Bucket &bucket : buckets)
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
        bool wildcard;
        std::unique_ptr<Bucket> bucket;

        std::size_t count() const { return 0; }
        template <class Visit> void each(guint32 count, Visit visit)
        {
            CHECK_TEXT(count > 0, "bucket->key_values != NULL");
            for (guint32 i = 0; i < count; ++i) {
                ReadKeyValue reading;
                visit(reading);
                add(std::move(reading.made));
            }
        }
        void add(KeyValuePtr key_value);
    };

    AndList &list;
    bool wildcard;

    std::size_t count() const { return 0; }
    template <class Visit> void each(guint32 count, Visit visit)
    {
        for (guint32 i = 0; i < count; ++i) {
            Part part{wildcard, nullptr};
            visit(part);
            put(std::move(*part.bucket));
        }
    }
    void put(Bucket bucket);
};

struct ReadAndList {
    AndList &list;
    ReadBuckets keyed() { return {list, false}; }
    ReadBuckets wildcards() { return {list, true}; }
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
        for (guint32 i = 0; i < count; ++i) {
            made.and_lists.emplace_back();
            visit(ReadAndList{made.and_lists.back()});
        }
    }
    auto tags()
    {
        return ReadTags([this](std::string_view tag) { made.tags.emplace_back(tag); });
    }

    guint32 type;
    gint &internal;
    inspectable &made;
};

} // namespace qandor
