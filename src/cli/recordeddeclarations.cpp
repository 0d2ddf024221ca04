// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/recordeddeclarations.hpp"

#include "cli/owners.hpp"

#include <algorithm>

namespace qandor::cli {
namespace {

// What is declared, without who did and under which ids.
std::string content_of(const Declaration &declaration)
{
    GArray *bytes = serialize_create_array();
    serialize_8bit(bytes, declaration.is_property() ? 1 : 0);
    inspectable_serialize_internal(event_declaration_get_inspectable(declaration.c()), bytes);
    return take_bytes(bytes);
}

// Whether an event's key is one that the sample has, with the same value where it has one.
bool is_key_of(const ::event *sample, const ::event *event, guint place)
{
    gint there = event_get_index(sample, event_get_key_at(event, place));
    if (there < 0)
        return false;
    auto at = static_cast<guint>(there);
    if (event_get_type_at(sample, at) != event_get_type_at(event, place))
        return false;
    return !event_has_value_at(sample, at) ||
           g_strcmp0(event_get_value_at(sample, at), event_get_value_at(event, place)) == 0;
}

} // namespace

void RecordedDeclarations::add(const Declaration &declaration, guint64 number)
{
    auto [found, is_new] = places_.try_emplace(content_of(declaration), all_.size());
    if (is_new) {
        all_.push_back(declaration);
        samples_.push_back(declaration.sample());
    }
    uses_[declaration.global_id()].push_back({number, found->second});
}

bool RecordedDeclarations::fits(const Event &event, const Use &use) const
{
    const ::event *sample = samples_[use.place].c();
    guint count = event_get_key_count(event.c());
    if (count != event_get_key_count(sample) ||
        event_is_property(event.c()) != event_is_property(sample))
        return false;
    for (guint place = 0; place < count; ++place)
        if (!is_key_of(sample, event.c(), place))
            return false;
    return true;
}

std::optional<std::size_t> RecordedDeclarations::of(const Event &event, guint64 number) const
{
    auto found = uses_.find(event_get_global_id(event.c()));
    if (found == uses_.end())
        return std::nullopt;
    const std::vector<Use> &uses = found->second;
    auto behind = std::partition_point(uses.begin(), uses.end(),
                                       [&](const Use &use) { return use.number < number; });
    auto is_it = [&](const Use &use) { return fits(event, use); };
    auto before = std::find_if(std::make_reverse_iterator(behind), uses.rend(), is_it);
    if (before != uses.rend())
        return before->place;
    auto after = std::find_if(behind, uses.end(), is_it);
    return after == uses.end() ? std::nullopt : std::optional(after->place);
}

} // namespace qandor::cli
