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
            tags.push_back(word("stu"));
    return tags;
}

PlainKeyValue RandomRecords::key_value(bool expression)
{
    PlainKeyValue record;
    record.name_space = number(4) ? "" : word("mn");
    record.key_nice_name = text();
    record.value_nice_name = text();
    record.value_user_string = text();
    record.complex_type_name = text();
    record.negated = number(4) == 0;
    record.value_type = static_cast<int>(1 + number(4));
    record.tags = tags();
    record.value_wildcard = number(4) == 0;
    record.key_wildcard = expression && !record.value_wildcard && number(4) == 0;
    if (!record.key_wildcard)
        record.key = number(8) ? word("abcd") : "key" + text();
    if (!record.value_wildcard)
        record.value = number(8) ? word("012") : text();
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
        for (unsigned left = number(6); left > 0; --left) {
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

PlainEvent RandomRecords::event()
{
    PlainEvent record;
    record.content = inspectable(1);
    record.user_data = number(2) ? "" : std::string("a\0b", 3) + text();
    record.seconds = static_cast<std::int32_t>(engine_());
    record.microseconds = static_cast<std::int32_t>(engine_());
    record.global_id = static_cast<std::uint32_t>(engine_());
    record.local_id = static_cast<std::uint32_t>(engine_());
    record.producer_id = static_cast<std::uint32_t>(engine_());
    record.property = static_cast<int>(number(2));
    return record;
}

PlainDeclaration RandomRecords::declaration()
{
    PlainDeclaration record;
    record.content = inspectable(0);
    record.producer_id = static_cast<std::uint32_t>(engine_());
    record.local_id = static_cast<std::uint32_t>(engine_());
    record.global_id = static_cast<std::uint32_t>(engine_());
    record.property = static_cast<int>(number(2));
    record.callback = static_cast<std::uint32_t>(engine_());
    record.callback_data = static_cast<std::uint32_t>(engine_());
    return record;
}

PlainExpression RandomRecords::expression()
{
    PlainExpression record;
    record.content = inspectable(2);
    record.id = static_cast<std::uint32_t>(engine_());
    record.dbus_service = text();
    record.dbus_object = text();
    record.consumer_token = static_cast<std::uint32_t>(engine_());
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
    record.user_data = number(2) ? "" : std::string("\0", 1) + text();
    record.seconds = static_cast<std::int32_t>(engine_());
    record.microseconds = static_cast<std::int32_t>(engine_());
    record.subscription_id = static_cast<std::uint32_t>(engine_());
    record.declaration_id = static_cast<std::uint32_t>(engine_());
    record.removed = static_cast<int>(number(2));
    record.expression = expression();
    record.declaration = declaration();
    return record;
}

} // namespace qandor::test
