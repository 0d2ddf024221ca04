// SPDX-License-Identifier: LGPL-2.1-or-later

// The rules of editing and copying inspectables a second time, on plain records.
#pragma once

#include "unit/model/plainrecords.hpp"

namespace qandor::test {

enum PlainType { Declaration = 0, Event = 1, Expression = 2, State = 3 };

constexpr const char *state_key_tag = "property-state";

// The first key-value of the key in the current and-list, or NULL.
const PlainKeyValue *find(const PlainInspectable &content, const std::string &key);
PlainKeyValue *find(PlainInspectable &content, const std::string &key);

// A key-value as it is made: settable when it is open.
PlainKeyValue made(const std::string &key, const std::string &value, bool negated = false);
PlainKeyValue made_open(const std::string &key, bool negated = false);
PlainKeyValue made_for_any_key(const std::string &value, bool negated = false);

void add(PlainInspectable &content, const PlainKeyValue &added);
bool begin_alternative(PlainInspectable &content);
bool set_value(PlainInspectable &content, const std::string &key, const std::string &text);
bool add_key_tag(PlainInspectable &content, const std::string &key, const std::string &tag);
bool has_key_with_tag(const PlainInspectable &content, const std::string &tag);
bool is_complete(const PlainInspectable &content);

PlainInspectable copied(const PlainInspectable &content, int type);

// What reading the XML form as a type makes of it; nothing when it is refused.
bool is_readable_from_xml(const PlainInspectable &content, int type);
PlainInspectable read_from_xml(const PlainInspectable &content, int type);

// The expression for a state, and the one for every other state.
PlainInspectable expression_for(const PlainInspectable &state, bool inverted);

bool has(const std::vector<std::string> &tags, const std::string &tag);

} // namespace qandor::test
