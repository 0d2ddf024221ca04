// SPDX-License-Identifier: LGPL-2.1-or-later

// Random plain records.

#include "unit/model/plainrecords.hpp"

#include <cstring>

namespace qandor::test {

std::string RandomRecords::word(const char *letters)
{
    return std::string(1, letters[number(static_cast<unsigned>(std::strlen(letters)))]);
}

// Mostly nothing, sometimes what is easily spoilt on the way.
std::string RandomRecords::text()
{
    static const char *const texts[] = {
        "a", "ä€😀", "<&>\"'", " x  y ", "l\nr\rt", "]]>&#10;", "0123456789abcdef0123"};
    return number(3) > 0 ? "" : texts[number(std::size(texts))];
}

std::vector<std::string> RandomRecords::tags()
{
    std::vector<std::string> tags;
    if (number(3) == 0)
        for (unsigned left = number(4); left > 0; --left)
            tags.push_back(tag());
    return tags;
}

std::string RandomRecords::key()
{
    if (one_in(8))
        return "key" + text();
    unsigned which = number(keys_);
    return which < 4 ? std::string(1, "abcd"[which]) : "k" + std::to_string(which);
}

std::string RandomRecords::value()
{
    return one_in(8) ? text() : std::to_string(number(values_));
}

std::string RandomRecords::name_space()
{
    return number(4) ? "" : word("mn");
}

std::string RandomRecords::tag()
{
    return word("stu");
}

PlainKeyValue RandomRecords::key_value(bool expression)
{
    PlainKeyValue record;
    record.name_space = name_space();
    record.key_nice_name = text();
    record.value_nice_name = text();
    record.value_user_string = text();
    record.complex_type_name = text();
    record.negated = number(4) == 0;
    record.value_type = static_cast<int>(1 + number(4));
    record.tags = tags();
    record.value_wildcard = number(4) == 0;
    record.key_wildcard = expression && !record.value_wildcard && number(4) == 0;
    record.settable = record.value_wildcard != 0;
    if (!record.key_wildcard)
        record.key = key();
    if (!record.value_wildcard)
        record.value = value();
    return record;
}

PlainInspectable RandomRecords::inspectable(int type)
{
    constexpr int subscribe_expression = 2, property_state = 3;
    bool is_expression = type == subscribe_expression;
    PlainInspectable content;
    content.type = type;
    content.internal = static_cast<int>(number(2));
    content.and_lists.resize(is_expression ? 1 + number(3) : 1);
    for (PlainAndList &list : content.and_lists) {
        for (unsigned left = number(most_ + 1); left > 0; --left) {
            PlainKeyValue record = key_value(is_expression);
            auto &bucket =
                record.key_wildcard ? list.wildcards[record.value] : list.keyed[record.key];
            if (is_expression || bucket.empty())
                bucket.push_back(record);
        }
    }
    if (!is_expression && type != property_state)
        content.tags = tags();
    return content;
}

// Never empty.
std::string RandomRecords::user_data()
{
    return std::string("a\0b", 3) + text();
}

PlainEvent RandomRecords::event()
{
    PlainEvent record;
    record.content = inspectable(1);
    record.user_data = number(2) ? "" : user_data();
    record.seconds = static_cast<std::int32_t>(id());
    record.microseconds = static_cast<std::int32_t>(id());
    record.global_id = id();
    record.local_id = id();
    record.producer_id = id();
    record.property = static_cast<int>(number(2));
    return record;
}

PlainDeclaration RandomRecords::declaration()
{
    PlainDeclaration record;
    record.content = inspectable(0);
    record.producer_id = id();
    record.local_id = id();
    record.global_id = id();
    record.property = static_cast<int>(number(2));
    record.callback = id();
    record.callback_data = id();
    return record;
}

PlainExpression RandomRecords::expression()
{
    PlainExpression record;
    record.content = inspectable(2);
    record.id = id();
    record.dbus_service = text();
    record.dbus_object = text();
    record.consumer_token = id();
    record.clandestine = static_cast<int>(number(2));
    return record;
}

PlainState RandomRecords::state()
{
    return {inspectable(3)};
}

PlainNotification RandomRecords::notification()
{
    PlainNotification record;
    record.user_data = number(2) ? "" : user_data();
    record.seconds = static_cast<std::int32_t>(id());
    record.microseconds = static_cast<std::int32_t>(id());
    record.subscription_id = id();
    record.declaration_id = id();
    record.removed = static_cast<int>(number(2));
    record.expression = expression();
    record.declaration = declaration();
    return record;
}

} // namespace qandor::test
