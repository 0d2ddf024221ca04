// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/recordview.hpp"

#include "cli/describe.hpp"
#include "cli/eventjson.hpp"
#include "cli/failure.hpp"
#include "cli/owners.hpp"
#include "cli/statekeys.hpp"
#include "cli/table.hpp"

namespace qandor::cli {
namespace {

using TimePoint = std::chrono::system_clock::time_point;

std::string number(guint32 number)
{
    return std::to_string(number);
}

std::string text_of(TimePoint time)
{
    return time == TimePoint{} ? "not stamped" : iso_time(time);
}

void print_title(const std::string &title)
{
    print_line(styled(Style::Bold, title));
}

// Names, user string, complex type and tags, whichever there are.
std::string about(const KeyView &key)
{
    std::string text;
    auto add = [&](const std::string &part) { text += (text.empty() ? "" : " ") + part; };
    if (!key.nice_name.empty())
        add("\"" + printable(key.nice_name) + "\"");
    if (!key.value_nice_name.empty())
        add("value \"" + printable(key.value_nice_name) + "\"");
    if (!key.complex_type.empty())
        add("complex type " + printable_word(key.complex_type));
    if (!key.user_string.empty())
        add("user string " + printable_word(key.user_string));
    if (!key.tags.empty())
        add(tags_text(key.tags));
    return text;
}

void print_keys(const std::vector<KeyView> &keys)
{
    if (keys.empty())
        return print_line("no keys");
    Table table({"KEY", "TYPE", "VALUE", "ABOUT"});
    for (const KeyView &key : keys) {
        std::string name = printable_word(key.key);
        if (!key.name_space.empty())
            name.insert(0, printable_word(key.name_space).append(":"));
        table.add({{name, Style::Cyan},
                   {type_name(key.type)},
                   key.has_value ? Cell(printable_word(key.value)) : Cell("(open)", Style::Dim),
                   {about(key)}});
    }
    table.print();
}

void add_facts(Table &table, const Event &event)
{
    if (std::string tags = tags_text(event.tags()); !tags.empty())
        table.add({"tags", {tags}});
}

void show(const Event &event)
{
    const ::event *c = event.c();
    print_title(std::string(event_is_internal(c) ? "internal " : "") +
                (event.is_property() ? "event with the state of a property" : "event"));
    Table table;
    table.add({"time", {text_of(event.time())}});
    table.add(
        {"declaration",
         {number(event_get_global_id(c)) + " (local " + number(event_get_local_id(c)) + ")"}});
    table.add({"producer", {number(event_get_producer_id(c))}});
    if (std::optional<std::string> payload = payload_of(event))
        table.add({"payload", {printable_word(*payload)}});
    add_facts(table, event);
    table.print();
    print_keys(keys_of(event));
}

void show(const Declaration &declaration)
{
    const ::event_declaration *c = declaration.c();
    Event sample = declaration.sample();
    print_title("declaration of an " + kind_of(declaration));
    Table table;
    table.add({"declaration",
               {number(declaration.global_id()) + " (local " +
                number(event_declaration_get_local_id(c)) + ")"}});
    table.add({"producer", {number(event_declaration_get_producer_id(c))}});
    add_facts(table, sample);
    table.print();
    print_keys(keys_of(sample));
}

void show(const ExpressionRecord &record)
{
    const ::subscribe_expression *c = record.c();
    print_title(subscribe_expression_get_clandestine(c) ? "clandestine subscribe expression"
                                                        : "subscribe expression");
    Table table;
    table.add({"conditions", {printable(to_text(expression_of(c)))}});
    table.add({"id", {number(subscribe_expression_get_id(c))}});
    table.add({"subscriber",
               {printable_word(subscribe_expression_get_dbus_service(c)) + " " +
                printable_word(subscribe_expression_get_dbus_object(c))}});
    table.add({"token", {number(subscribe_expression_get_consumer_token(c))}});
    table.print();
}

void show(const PropertyState &state)
{
    print_title("state of a property");
    print_keys(keys_of(state));
}

void show(const Notification &notification)
{
    print_title(notification.is_removal() ? "notification: a declaration has gone"
                                          : "notification: a declaration is there");
    Table table;
    table.add({"time", {text_of(time_of(notification))}});
    table.add({"declaration", {number(notification.declaration_id())}});
    table.add({"subscription", {number(notification_get_subscription_id(notification.c()))}});
    if (std::optional<std::string> payload = payload_of(notification))
        table.add({"payload", {printable_word(*payload)}});
    table.print();
    print_line("");
    show(ExpressionRecord(
        subscribe_expression_copy(notification_get_subscribe_expression(notification.c()))));
    print_line("");
    show(notification.declaration());
}

Json described(const Event &event)
{
    Json json{{"record", "event"}};
    json.update(json_of(event));
    return json;
}

Json described(const Declaration &declaration)
{
    Json json{{"record", "declaration"}};
    json.update(json_of(declaration));
    return json;
}

Json described(const ExpressionRecord &record)
{
    const ::subscribe_expression *c = record.c();
    return {{"record", "expression"},
            {"conditions", to_text(expression_of(c))},
            {"clandestine", subscribe_expression_get_clandestine(c) != FALSE},
            {"id", subscribe_expression_get_id(c)},
            {"bus_name", subscribe_expression_get_dbus_service(c)},
            {"object", subscribe_expression_get_dbus_object(c)},
            {"token", subscribe_expression_get_consumer_token(c)}};
}

Json described(const PropertyState &state)
{
    Json json{{"record", "state"}};
    json.update(json_of_state(keys_of(state)));
    return json;
}

Json described(const Notification &notification)
{
    return {{"record", "notification"},
            {"removed", notification.is_removal()},
            {"time", iso_time(time_of(notification))},
            {"declaration_id", notification.declaration_id()},
            {"subscription_id", notification_get_subscription_id(notification.c())},
            {"expression", described(ExpressionRecord(subscribe_expression_copy(
                               notification_get_subscribe_expression(notification.c()))))},
            {"declaration", described(notification.declaration())}};
}

} // namespace

void print_record(const Record &record)
{
    std::visit([](const auto &one) { show(one); }, record);
}

Json json_of(const Record &record)
{
    return std::visit([](const auto &one) { return described(one); }, record);
}

std::string xml_of(const Record &record)
{
    if (const auto *declaration = std::get_if<Declaration>(&record))
        return declaration->to_xml();
    if (const auto *expression = std::get_if<ExpressionRecord>(&record))
        return Text(subscribe_expression_serialize_xml(expression->c())).get();
    if (const auto *state = std::get_if<PropertyState>(&record))
        return Text(property_state_serialize_xml(state->c())).get();
    throw Failure(EX_DATAERR, "Events and notifications have no XML form");
}

} // namespace qandor::cli
