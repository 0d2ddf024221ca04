// SPDX-License-Identifier: LGPL-2.1-or-later

// Tags in the order in which they came. Most keys have none, so a list of tags is made when the
// first one comes, and shared by all copies of its key-value until one of them changes it.
#pragma once

#include "model/counted.hpp"
#include "model/keyedhash.hpp"

#include <glib.h>

#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace qandor {

class TagList : public Counted {
public:
    static void dispose(const TagList *list) { delete list; }

    const std::vector<std::string> &tags() const { return tags_; }
    bool has(std::string_view tag) const;
    bool may_repeat() const { return may_repeat_; }

    // Appends the tag unless it is there.
    void add(std::string_view tag);
    // Appends the tag whether it is there or not.
    void give(std::string_view tag);

private:
    friend class Footprint;

    std::vector<std::string> tags_;
    std::unordered_set<std::string, TextHash>
        known_; // filled once there are too many to search one by one
    bool may_repeat_ = false;
};

using TagShare = Share<TagList>;

// The list to change: the owner's own, made or unshared when needed.
TagList &own_tags(TagShare &share);

TagShare without_repeats(const TagList &list);

// A copy in which equal tags have collapsed: the same list where none are equal.
inline TagShare distinct_tags(const TagShare &share)
{
    return share && share->may_repeat() ? without_repeats(*share) : share;
}

extern const std::vector<std::string> no_tags;

// The tags of a share that may hold nothing.
inline const std::vector<std::string> &tags_of(const TagShare &share)
{
    return share ? share->tags() : no_tags;
}

bool has_tag(const std::vector<std::string> &tags, std::string_view tag);

// Whether both hold the same tags in any order, repeated ones counted.
bool are_same_tags(const std::vector<std::string> &tags1, const std::vector<std::string> &tags2);

// A new list of new strings in reverse order, for callers in C.
GList *tags_to_reversed_glist(const std::vector<std::string> &tags);

} // namespace qandor
