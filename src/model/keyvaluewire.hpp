// SPDX-License-Identifier: LGPL-2.1-or-later

// Key-values as subjects of the grammar: one that is written, one that is read.
#pragma once

#include "model/andlist.hpp"
#include "model/grammar.hpp"
#include "model/keyvalue.hpp"
#include "platform/check.hpp"

#include <vector>

namespace qandor {

// Strings that are written one behind another.
class WrittenTags {
public:
    explicit WrittenTags(const std::vector<std::string> &tags) : tags_(tags) {}
    std::size_t count() const { return tags_.size(); }
    template <class Visit> void each(guint32, Visit visit) const
    {
        for (const std::string &tag : tags_)
            visit(std::string_view(tag));
    }

private:
    const std::vector<std::string> &tags_;
};

// Strings that are read, each handed to a receiver as it comes.
template <class Receive> class ReadTags {
public:
    explicit ReadTags(Receive receive) : receive_(receive) {}
    std::size_t count() const { return 0; }
    template <class Visit> void each(guint32 count, Visit visit)
    {
        for (guint32 i = 0; i < count; ++i) {
            std::string_view tag;
            visit(tag);
            receive_(tag);
        }
    }

private:
    Receive receive_;
};

struct WrittenKeyValue {
    explicit WrittenKeyValue(const key_value &key_value)
        : fields{key_value.key->view(),
                 key_value.key_wildcard,
                 key_value.attribute(Attribute::NameSpace),
                 key_value.attribute(Attribute::KeyNiceName),
                 key_value.value,
                 key_value.value_wildcard,
                 key_value.attribute(Attribute::ValueNiceName),
                 key_value.attribute(Attribute::ValueUserString),
                 key_value.attribute(Attribute::ComplexTypeName),
                 key_value.negated,
                 key_value.value_type},
          tags(tags_of(key_value.tags))
    {
    }

    const grammar::KeyValueFields fields;
    const WrittenTags tags;
};

// Reads a record into an and-list, not yet in a bucket, or into one of its own. The tags come last,
// so the key-value is made when their turn comes.
struct ReadKeyValue {
    struct Tags {
        ReadKeyValue &reading;
        std::size_t count() const { return 0; }
        template <class Visit> void each(guint32 count, Visit visit)
        {
            reading.make();
            for (guint32 i = 0; i < count; ++i) {
                std::string_view tag;
                visit(tag);
                own_tags(reading.made->tags).give(tag);
            }
        }
    };

    ReadKeyValue(Attributes::Maker &attributes, AndList *list) : attributes(attributes), list(list)
    {
    }
    ReadKeyValue(const ReadKeyValue &) = delete;
    ReadKeyValue &operator=(const ReadKeyValue &) = delete;

    void make();

    grammar::KeyValueFields fields;
    Tags tags{*this};
    Attributes::Maker &attributes;
    AndList *list;
    key_value *made = nullptr;
};

// A key wildcard comes back without a key and a value wildcard without a value, as when it is made.
inline void ReadKeyValue::make()
{
    bool both = fields.key_wildcard == TRUE && fields.value_wildcard == TRUE;
    CHECK_TEXT(!both, "key_value != NULL");
    CHECK_TEXT(fields.key_wildcard == FALSE || fields.value_wildcard == FALSE,
               "key_wildcard == FALSE || value_wildcard == FALSE");

    std::string_view key = fields.key_wildcard == TRUE ? std::string_view("") : fields.key;
    std::string_view value = fields.value_wildcard == TRUE ? std::string_view("") : fields.value;
    const KeyName *name = KeyName::intern(key);
    made = list
               ? list->make(name, fields.key_wildcard, value, fields.value_wildcard, fields.negated)
               : new key_value(name, fields.key_wildcard, value, fields.value_wildcard,
                               fields.negated);
    made->attributes =
        attributes.make({fields.name_space, fields.key_nice_name, fields.value_nice_name,
                         fields.value_user_string, fields.complex_type_name});
    made->value_type = fields.value_type;
}

} // namespace qandor
