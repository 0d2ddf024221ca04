// SPDX-License-Identifier: LGPL-2.1-or-later

#include "fuzz/fixedrecords.hpp"

#include <memory>

namespace qandor::fuzz {
namespace {

template <class Record, auto free> struct Records {
    ~Records()
    {
        for (Record *record : all)
            free(record);
    }
    std::vector<Record *> all;
};

event_declaration *new_declaration(const char *topic, bool internal = false)
{
    event_declaration *made = event_declaration_new(internal);
    event_declaration_add_key_value(made, "topic0", topic, VALUE_TYPE_STRING);
    event_declaration_add_key(made, "state", VALUE_TYPE_STRING);
    return made;
}

event_declaration *new_property()
{
    event_declaration *made = new_declaration("Power");
    event_declaration_set_property(made, "state", nullptr, nullptr);
    event_declaration_set_local_id(made, 2);
    return made;
}

event_declaration *new_full_declaration()
{
    event_declaration *made = new_declaration("Device", true);
    gint count = 5;
    event_declaration_add_key_value(made, "count", &count, VALUE_TYPE_INT);
    event_declaration_add_key(made, "share", VALUE_TYPE_DOUBLE);
    event_declaration_set_name_space(made, "count", "space");
    event_declaration_set_nice_names(made, "count", "Count", "Five");
    event_declaration_set_value_user_string(made, "count", "user");
    event_declaration_set_complex_type_name(made, "count", "complex");
    event_declaration_add_key_tag(made, "count", "tag");
    event_declaration_add_tag(made, "whole");
    event_declaration_add_tag(made, "part");
    return made;
}

event *new_event(const event_declaration *declaration)
{
    event *made = event_declaration_generate_event(declaration);
    gdouble share = 0.5;
    event_set_value(made, "state", "on");
    if (event_get_index(made, "share") >= 0)
        event_set_value(made, "share", &share);
    event_set_timestamp(made, 1600000000, 5);
    event_set_user_data_string(made, "user data");
    return made;
}

subscribe_expression *new_expression(const char *topic)
{
    subscribe_expression *made = subscribe_expression_new();
    if (topic)
        subscribe_expression_add_key_value(made, "topic0", topic);
    return made;
}

subscribe_expression *new_full_expression()
{
    subscribe_expression *made = subscribe_expression_new_full(TRUE);
    subscribe_expression_add_key_value(made, "topic0", "Device");
    subscribe_expression_add_key_value(made, "topic0", "Power");
    subscribe_expression_add_key_not_value(made, "topic0", "Light");
    subscribe_expression_add_not_key(made, "absent");
    subscribe_expression_add_not_value(made, "nowhere");
    subscribe_expression_or(made);
    subscribe_expression_add_key(made, "count");
    subscribe_expression_set_name_space(made, "count", "space");
    subscribe_expression_add_value(made, "Device");
    subscribe_expression_set_dbus_service(made, ":1.1");
    subscribe_expression_set_dbus_object(made, "/object");
    return made;
}

subscribe_expression *new_value_expression(const char *value, bool negated)
{
    subscribe_expression *made = subscribe_expression_new();
    negated ? subscribe_expression_add_not_value(made, value)
            : subscribe_expression_add_value(made, value);
    return made;
}

} // namespace

const std::vector<event_declaration *> &fixed_declarations()
{
    static const Records<event_declaration, event_declaration_free> records{
        {new_declaration("Device"), new_property(), new_full_declaration()}};
    return records.all;
}

const std::vector<event *> &fixed_events()
{
    static const Records<event, event_free> records{{new_event(fixed_declarations()[0]),
                                                     new_event(fixed_declarations()[1]),
                                                     new_event(fixed_declarations()[2])}};
    return records.all;
}

const std::vector<subscribe_expression *> &fixed_expressions()
{
    static const Records<subscribe_expression, subscribe_expression_free> records{
        {new_expression("Device"), new_expression(nullptr), new_full_expression(),
         new_value_expression("on", false), new_value_expression("on", true)}};
    return records.all;
}

} // namespace qandor::fuzz
