// SPDX-License-Identifier: LGPL-2.1-or-later

#include "properties/plainviews.hpp"

#include <algorithm>

namespace qandor::test {
namespace {

void append(Lines &lines, const Lines &more)
{
    lines.insert(lines.end(), more.begin(), more.end());
}

// Ids are printed as they always were: signed.
std::string numbered(const char *name, std::uint32_t id)
{
    return std::string(name) + ": " + std::to_string(static_cast<std::int32_t>(id));
}

MaybeText unless_empty(const std::string &text)
{
    return text.empty() ? std::nullopt : MaybeText(text);
}

} // namespace

std::string printed(const PlainKeyValue &record)
{
    std::string key = record.key_wildcard ? "*" : record.key;
    if (!record.key_wildcard && !record.name_space.empty())
        key = record.name_space + ":" + key;
    std::string prefix, suffix;
    if (!record.key_nice_name.empty())
        prefix += "(" + record.key_nice_name + ") ";
    if (!record.complex_type_name.empty())
        prefix += "{" + record.complex_type_name + "} ";
    if (!record.value_nice_name.empty())
        suffix = " (" + record.value_nice_name + ")";
    std::string line = "[" + key + " " + prefix + (record.negated ? "!" : "") + "= '" +
                       (record.value_wildcard ? "*" : record.value) + "'" + suffix + "]";
    for (const std::string &tag : record.tags)
        line += " {" + tag + "}";
    return line;
}

Lines printed(const PlainInspectable &record)
{
    Lines lines;
    for (std::size_t i = 0; i < record.and_lists.size(); ++i) {
        if (i > 0)
            lines.push_back("OR");
        for (const PlainBuckets *buckets :
             {&record.and_lists[i].keyed, &record.and_lists[i].wildcards})
            for (const auto &[name, bucket] : *buckets)
                for (const PlainKeyValue &one : bucket)
                    lines.push_back(printed(one));
    }
    for (const std::string &tag : record.tags)
        lines.push_back("{" + tag + "}");
    return lines;
}

Lines printed(const PlainEvent &record)
{
    Lines lines{"---- Event ------------------------"};
    if (record.property)
        lines.push_back("< Property >");
    if (record.content.internal)
        lines.push_back("< Internal >");
    lines.push_back(numbered("Global Declaration Id", record.global_id));
    lines.push_back(numbered("Local Declaration Id", record.local_id));
    lines.push_back(numbered("Producer Id", record.producer_id));
    lines.push_back("Timestamp: " + std::to_string(record.seconds) + "." +
                    std::to_string(record.microseconds));
    append(lines, printed(record.content));
    lines.push_back("-----------------------------------");
    return lines;
}

Lines printed(const PlainDeclaration &record)
{
    Lines lines{"--- Event Declaration -----------------"};
    if (record.property)
        lines.push_back("< Property >");
    if (record.content.internal)
        lines.push_back("< Internal >");
    lines.push_back(numbered("Global Declaration Id", record.global_id));
    lines.push_back(numbered("Local Declaration Id", record.local_id));
    lines.push_back(numbered("Producer Id", record.producer_id));
    append(lines, printed(record.content));
    lines.push_back("---------------------------------------");
    return lines;
}

Lines printed(const PlainExpression &record)
{
    std::string id = std::to_string(static_cast<std::int32_t>(record.id));
    id.insert(0, id.size() < 3 ? 3 - id.size() : 0, ' ');
    Lines lines{"---- Subscribe Expression (id:" + id + ") ----"};
    append(lines, printed(record.content));
    lines.push_back("DBus Service: " + record.dbus_service);
    lines.push_back("DBus Object: " + record.dbus_object);
    lines.push_back(numbered("Consumer Token", record.consumer_token));
    lines.push_back(std::string("Clandestine: ") + (record.clandestine ? "true" : "false"));
    lines.push_back("---------------------------------------");
    return lines;
}

Lines printed(const PlainState &record)
{
    Lines lines{"----------- Property State ------------"};
    append(lines, printed(record.content));
    lines.push_back("---------------------------------------");
    return lines;
}

Lines printed(const PlainNotification &record)
{
    Lines lines{"---- Notification ------------------------"};
    lines.push_back(numbered("Subscription Id", record.subscription_id));
    lines.push_back(numbered("Declaration Id", record.declaration_id));
    lines.push_back(std::string("Declaration Type: NOTIFY_DECLARATION_") +
                    (record.removed ? "REMOVED" : "ADDED"));
    lines.push_back("Subscribe expression:");
    append(lines, printed(record.expression));
    lines.push_back("Event declaration:");
    append(lines, printed(record.declaration));
    lines.push_back("-----------------------------------");
    return lines;
}

PlainRaw raw(const PlainKeyValue &record)
{
    PlainRaw view;
    if (!record.key_wildcard)
        view.key = record.key;
    if (!record.value_wildcard)
        view.value = record.value;
    view.name_space = unless_empty(record.name_space);
    view.complex_type_name = unless_empty(record.complex_type_name);
    view.negated = record.negated;
    view.tags.assign(record.tags.rbegin(), record.tags.rend());
    return view;
}

std::vector<std::vector<PlainRaw>> raw(const PlainInspectable &record)
{
    std::vector<std::vector<PlainRaw>> views;
    for (const PlainAndList &list : record.and_lists) {
        std::vector<PlainRaw> &view = views.emplace_back();
        for (const PlainBuckets *buckets : {&list.keyed, &list.wildcards})
            for (const auto &[name, bucket] : *buckets)
                for (const PlainKeyValue &one : bucket)
                    view.push_back(raw(one));
        std::reverse(view.begin(), view.end());
    }
    std::reverse(views.begin(), views.end());
    return views;
}

} // namespace qandor::test
