// SPDX-License-Identifier: LGPL-2.1-or-later

// The event that all benchmarks are about: 8 keys, about 530 bytes, as devices send them.
#pragma once

#include <qandor/qandor.h>

namespace qandor::bench {

inline event_declaration *new_declaration()
{
    event_declaration *declaration = event_declaration_new(FALSE);
    event_declaration_add_key_value(declaration, "topic0", "Device", VALUE_TYPE_STRING);
    struct {
        const char *key;
        guint32 type;
        const char *nice_name;
    } const keys[] = {
        {"topic1", VALUE_TYPE_STRING, "Subsystem"},     {"load", VALUE_TYPE_DOUBLE, "Load average"},
        {"memory", VALUE_TYPE_INT, "Available memory"}, {"active", VALUE_TYPE_BOOL, "Is in use"},
        {"count", VALUE_TYPE_INT, "Processes"},         {"state", VALUE_TYPE_STRING, "State of it"},
        {"unit", VALUE_TYPE_STRING, "Unit of measure"},
    };
    for (const auto &key : keys) {
        event_declaration_add_key(declaration, key.key, key.type);
        event_declaration_set_nice_names(declaration, key.key, key.nice_name, nullptr);
        event_declaration_set_name_space(declaration, key.key, "com.vemo.device");
    }
    event_declaration_add_key_tag(declaration, "memory", "unit:MiB");
    return declaration;
}

// Fills in all seven keys that the declaration left open, in their types.
inline void fill(event *event)
{
    const gdouble load = 0.42;
    const gint memory = 23061, count = 117;
    const gboolean active = TRUE;
    event_set_value(event, "topic1", "Load");
    event_set_value(event, "load", &load);
    event_set_value(event, "memory", &memory);
    event_set_value(event, "active", &active);
    event_set_value(event, "count", &count);
    event_set_value(event, "state", "running");
    event_set_value(event, "unit", "percent");
}

// Three conditions that the event satisfies.
inline subscribe_expression *new_expression()
{
    subscribe_expression *expression = subscribe_expression_new();
    subscribe_expression_add_key_value(expression, "topic0", "Device");
    subscribe_expression_add_key_value(expression, "state", "running");
    subscribe_expression_add_key_not_value(expression, "unit", "none");
    return expression;
}

} // namespace qandor::bench
