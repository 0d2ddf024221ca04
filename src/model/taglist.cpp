// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/taglist.hpp"

#include <algorithm>

namespace qandor {
namespace {

// From here on a set is cheaper than looking at every tag, and adding many stays linear.
constexpr std::size_t many = 16;

} // namespace

const std::vector<std::string> no_tags;

bool TagList::has(std::string_view tag) const
{
    if (known_.empty())
        return has_tag(tags_, tag);
    return known_.count(std::string(tag)) > 0;
}

void TagList::add(std::string_view tag)
{
    if (has(tag))
        return;
    tags_.emplace_back(tag);
    if (!known_.empty())
        known_.insert(tags_.back());
    else if (tags_.size() > many)
        known_.insert(tags_.begin(), tags_.end());
}

void TagList::give(std::string_view tag)
{
    may_repeat_ = may_repeat_ || !tags_.empty();
    tags_.emplace_back(tag);
    if (!known_.empty())
        known_.insert(tags_.back());
}

TagList &own_tags(TagShare &share)
{
    if (!share)
        share = TagShare(new TagList());
    else if (!share->has_sole_owner())
        share = TagShare(new TagList(*share));
    return *share;
}

TagShare without_repeats(const TagList &list)
{
    TagShare distinct(new TagList());
    for (const std::string &tag : list.tags())
        distinct->add(tag);
    return distinct;
}

bool has_tag(const std::vector<std::string> &tags, std::string_view tag)
{
    return std::find(tags.begin(), tags.end(), tag) != tags.end();
}

bool are_same_tags(const std::vector<std::string> &tags1, const std::vector<std::string> &tags2)
{
    if (tags1.size() != tags2.size())
        return false;
    if (tags1 == tags2)
        return true;
    std::vector<std::string_view> sorted1(tags1.begin(), tags1.end());
    std::vector<std::string_view> sorted2(tags2.begin(), tags2.end());
    std::sort(sorted1.begin(), sorted1.end());
    std::sort(sorted2.begin(), sorted2.end());
    return sorted1 == sorted2;
}

GList *tags_to_reversed_glist(const std::vector<std::string> &tags)
{
    GList *list = nullptr;
    for (const std::string &tag : tags)
        list = g_list_prepend(list, g_strndup(tag.data(), tag.size()));
    return list;
}

} // namespace qandor
