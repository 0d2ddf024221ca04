// SPDX-License-Identifier: LGPL-2.1-or-later

// The inspectable record. Message objects hold theirs by value.
#pragma once

#include "model/andlists.hpp"
#include "model/taglist.hpp"
#include "platform/owners.hpp"

#include <qandor/inspectable.h>

#include <memory>
#include <string_view>
#include <vector>

struct inspectable : qandor::SliceAllocated {
    // One that is about to be read, or to take another one's content.
    struct Unread {};

    explicit inspectable(guint32 type) : type(type) { and_lists.add(); }
    explicit inspectable(Unread) : type(IT_EVENT) {}
    inspectable(const inspectable &other, guint32 type);
    inspectable(inspectable &&) = default;
    inspectable &operator=(inspectable &&) = default;
    ~inspectable();

    // The last and-list, to which key-values are added and in which they are looked up; NULL only
    // after reading a record that has none.
    qandor::AndList *current() { return and_lists.last(); }
    const qandor::AndList *current() const { return and_lists.last(); }

    // The first key-value of the key, or NULL.
    key_value *find(std::string_view key) const;

    // Adds a key-value as the type wants it: a declaration keeps only the latest of a key.
    void add_key_value_internal(key_value key_value);

    // What positions count: the keys of the current and-list.
    std::size_t position_count() const;
    // The key-value at a position, or NULL past the end.
    key_value *at(std::size_t position) const;

    qandor::AndLists and_lists; // alternatives, in the order in which they were begun
    std::vector<std::string> tags;
    gint internal = FALSE;
    guint32 type;
    bool has_positions = true; // not after reading a declaration, until a key is added
};

namespace qandor {

using InspectablePtr = std::unique_ptr<inspectable>;

inline bool is_inspectable_type(guint32 type)
{
    return type <= IT_PROPERTY_STATE;
}

} // namespace qandor

// Whether the type is one of those that an operation allows; ends the process if it is not.
#define CHECK_TYPE_IS_VALID(inspect)                                                               \
    CHECK_TEXT(qandor::is_inspectable_type((inspect)->type), #inspect                              \
               "->type == IT_EVENT_DECLARATION || " #inspect "->type == IT_EVENT || " #inspect     \
               "->type == IT_PROPERTY_STATE || " #inspect "->type == IT_SUBSCRIBE_EXPRESSION")
