// SPDX-License-Identifier: LGPL-2.1-or-later

// One record of each kind, as bytes.
#pragma once

#include "support/records.hpp"
#include "support/temporaryfolder.hpp"

#include <qandor/qandor.hpp>

#include <string>
#include <vector>

namespace qandor::test {

inline std::string bytes_of_record(GArray *array)
{
    Owned<GArray> owner(array);
    return {array->data, array->len};
}

inline Declaration sample_declaration()
{
    KeyTraits traits{.name_space = "n", .nice_name = "Load", .tags = {"a tag"}};
    return Declaration().topic("Device", "Load").key<double>("load", traits).key("unit", "1");
}

inline std::string event_bytes()
{
    Event event = sample_declaration().sample();
    event["load"] = 0.5;
    event_set_timestamp(event.c(), 1000000000, 5);
    event_set_user_data_string(event.c(), "payload");
    event_set_global_id(event.c(), 7);
    event_add_tag(event.c(), "whole");
    return bytes_of_record(event_serialize(event.c()));
}

inline std::string declaration_bytes()
{
    return bytes_of_record(event_declaration_serialize(sample_declaration().c()));
}

inline std::string expression_bytes()
{
    Expression expression = (key("topic0") == "Device" && key("load") != "1") || any_key == "x";
    return bytes_of_record(subscribe_expression_serialize(expression.clandestine().build().c()));
}

inline std::string state_bytes()
{
    Owned<property_state> state(property_state_new());
    property_state_add_key_value(state.get(), "topic0", "Power", FALSE);
    property_state_add_key_value(state.get(), "state", "on", TRUE);
    return bytes_of_record(property_state_serialize(state.get()));
}

inline std::string notification_bytes()
{
    Owned<notification> made(notification_new());
    notification_set_declaration(made.get(), sample_declaration().c());
    notification_set_subscribe_expression(made.get(), Expression().build().c());
    notification_set_type(made.get(), NOTIFY_DECLARATION_REMOVED);
    notification_set_subscription_id(made.get(), 3);
    return bytes_of_record(notification_serialize(made.get()));
}

inline std::vector<std::string> all_records()
{
    return {event_bytes(), declaration_bytes(), expression_bytes(), state_bytes(),
            notification_bytes()};
}

// The files that the examples of the help speak of.
inline void write_sample_files(const TemporaryFolder &folder)
{
    folder.write("event.bin", event_bytes());
}

} // namespace qandor::test
