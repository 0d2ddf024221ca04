// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/toptable.hpp"

#include "cli/describe.hpp"
#include "cli/eventjson.hpp"
#include "cli/table.hpp"

#include <algorithm>

namespace qandor::cli {
namespace {

std::string number(double number, int digits)
{
    char text[64];
    g_snprintf(text, sizeof text, "%.*f", digits, number);
    return text;
}

std::string shown(const std::optional<Subscribers> &subscribers)
{
    if (!subscribers)
        return "?";
    std::string visible = subscribers->visible ? std::to_string(subscribers->visible) : "";
    if (subscribers->clandestine == 0)
        return visible.empty() ? "none" : visible;
    return visible + (visible.empty() ? "" : ", ") + std::to_string(subscribers->clandestine) +
           " clandestine";
}

bool is_busier(const TopRow &one, const TopRow &other)
{
    if (one.events_a_second != other.events_a_second)
        return one.events_a_second > other.events_a_second;
    return std::pair(one.topics, one.declaration->global_id()) <
           std::pair(other.topics, other.declaration->global_id());
}

Json json_of(const TopRow &row)
{
    Json json = cli::json_of(*row.declaration);
    json.erase("keys");
    json.erase("tags");
    json["events_per_second"] = row.events_a_second;
    json["bytes_per_second"] = row.bytes_a_second;
    json["events"] = row.events;
    json["visible"] = row.subscribers ? Json(row.subscribers->visible) : Json();
    json["clandestine"] = row.subscribers ? Json(row.subscribers->clandestine) : Json();
    return json;
}

} // namespace

void TopTable::sort()
{
    std::sort(rows.begin(), rows.end(), is_busier);
}

std::string TopTable::title() const
{
    double events = 0;
    for (const TopRow &row : rows)
        events += row.events_a_second;
    std::string text = clock_time(std::chrono::system_clock::now()) + "  " + number(events, 1) +
                       " events/s of " + counted(rows.size(), "declaration", "declarations");
    return has_switch ? text : text + styled(Style::Red, "  the switch does not answer");
}

std::vector<std::string> TopTable::lines() const
{
    Table table({"ID", "TOPIC", "KIND", "EVENTS/S", "BYTES/S", "EVENTS", "SUBSCRIBERS"});
    for (const TopRow &row : rows)
        table.add({{std::to_string(row.declaration->global_id())},
                   {row.topics, Style::Cyan},
                   {kind_of(*row.declaration)},
                   {number(row.events_a_second, 1),
                    row.events_a_second > 0 ? Style::Green : Style::Plain},
                   {number(row.bytes_a_second, 0)},
                   {std::to_string(row.events)},
                   {shown(row.subscribers)}});
    return table.lines();
}

Json TopTable::json() const
{
    Json json{{"time", iso_time(std::chrono::system_clock::now())},
              {"seconds", seconds},
              {"switch", has_switch},
              {"declarations", Json::array()}};
    for (const TopRow &row : rows)
        json["declarations"].push_back(json_of(row));
    return json;
}

} // namespace qandor::cli
