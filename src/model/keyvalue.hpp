// SPDX-License-Identifier: LGPL-2.1-or-later

// The key_value record and what the model does with it.
#pragma once

#include "model/attributes.hpp"
#include "model/keyname.hpp"
#include "model/shortbytes.hpp"
#include "model/taglist.hpp"
#include "platform/owners.hpp"

#include <qandor/keyvalue.h>

#include <memory>
#include <string>
#include <string_view>

struct key_value : qandor::SliceAllocated {
    const qandor::KeyName *key;
    std::string value;
    qandor::Share<const qandor::Attributes> attributes;
    qandor::TagShare tags;
    // Its place in an and-list, see andlist.hpp: the next of its bucket and, in the first one of a
    // bucket, the last one and their number.
    key_value *next = nullptr;
    key_value *last = nullptr;
    guint32 count = 0;
    // Kept as they were given: the flag tests read them as "not 0".
    gint key_wildcard;
    gint value_wildcard;
    gint negated;
    bool value_settable;
    guint8 value_type = VALUE_TYPE_STRING;

    key_value(const qandor::KeyName *key, gint key_wildcard, std::string_view value,
              gint value_wildcard, gint negated)
        : key(key), value(value), key_wildcard(key_wildcard), value_wildcard(value_wildcard),
          negated(negated), value_settable(value_wildcard)
    {
    }
    key_value(const key_value &other)
        : SliceAllocated(), key(other.key), value(other.value), attributes(other.attributes),
          tags(qandor::distinct_tags(other.tags)), key_wildcard(other.key_wildcard),
          value_wildcard(other.value_wildcard), negated(other.negated),
          value_settable(other.value_settable), value_type(other.value_type)
    {
    }
    key_value(key_value &&) = default;
    key_value &operator=(key_value &&) = default;

    qandor::OptionalText attribute(qandor::Attribute which) const
    {
        return attributes ? attributes->get(which) : qandor::OptionalText("");
    }
    void set_attribute(qandor::Attribute which, qandor::OptionalText text);
    void set_value(std::string_view text)
    {
        value_wildcard = FALSE;
        value.assign(text);
    }
    void begin_chain()
    {
        next = nullptr;
        last = this;
        count = 1;
    }
    bool is_open() const { return value_settable && value_wildcard; }
};

namespace qandor {

using KeyValuePtr = std::unique_ptr<key_value>;

// What a container's record says about one condition on its key.
enum class Verdict {
    Matched,  // the condition holds as a positive match
    Neither,  // the condition holds, without counting as a match
    Differs,  // a positive condition on another value
    Excluded, // the condition is broken, whatever else the container has
};

// NULL equals only NULL.
inline bool are_same_texts(OptionalText text1, OptionalText text2)
{
    return are_same_bytes(text1, text2) && !text1.data() == !text2.data();
}

// The name space of a condition holds for everybody when it is "", and is compared otherwise.
inline bool is_in_name_space(const key_value &container, const key_value &condition)
{
    if (!condition.attributes)
        return true;
    OptionalText wanted = condition.attributes->get(Attribute::NameSpace);
    if (wanted.data() && wanted.empty())
        return true;
    return are_same_texts(container.attribute(Attribute::NameSpace), wanted);
}

inline Verdict weigh_positives(const key_value &container, const key_value &condition)
{
    if (container.value_wildcard || condition.value_wildcard ||
        are_same_bytes(container.value, condition.value))
        return Verdict::Matched;
    return Verdict::Differs;
}

inline Verdict weigh_one_negated(const key_value &negated, const key_value &positive)
{
    if (negated.value_wildcard)
        return Verdict::Excluded;
    if (positive.value_wildcard)
        return Verdict::Neither;
    return are_same_bytes(negated.value, positive.value) ? Verdict::Excluded : Verdict::Neither;
}

// Weighs a condition against a record of the same key, or against NULL when there is none. Neither
// is a key wildcard.
inline Verdict weigh(const key_value *container, const key_value &condition)
{
    if (!container)
        return condition.negated ? Verdict::Neither : Verdict::Excluded;
    if (!is_in_name_space(*container, condition))
        return Verdict::Excluded;
    if (container->negated && condition.negated)
        return Verdict::Neither;
    if (container->negated)
        return weigh_one_negated(*container, condition);
    if (condition.negated)
        return weigh_one_negated(condition, *container);
    return weigh_positives(*container, condition);
}

// Like key_value_new(): checks what it is given, and returns nothing when both wildcards are TRUE.
KeyValuePtr make_key_value(const gchar *key, gboolean key_wildcard, const gchar *value,
                           gboolean value_wildcard, gboolean negated);

} // namespace qandor
