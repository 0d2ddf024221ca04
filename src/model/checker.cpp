// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/checker.hpp"

#include "model/grammar.hpp"

#include <qandor/eventutils.h>

#include <algorithm>
#include <set>

using namespace qandor;
using wire::Checker;

const char *Checker::name_of(serialize_id id)
{
    switch (id) {
    case SERIALIZE_ID_EVENT_DECLARATION:
        return "no event declaration begins here";
    case SERIALIZE_ID_EVENT:
        return "no event begins here";
    case SERIALIZE_ID_INSPECTABLE:
        return "no inspectable begins here";
    case SERIALIZE_ID_ANDLIST:
        return "no and-list begins here";
    case SERIALIZE_ID_BUCKET:
        return "no bucket begins here";
    case SERIALIZE_ID_KEYVALUE:
        return "no key-value begins here";
    case SERIALIZE_ID_SUBSCRIBE_EXPRESSION:
        return "no subscribe expression begins here";
    case SERIALIZE_ID_PROPERTY_STATE:
        return "no property state begins here";
    case SERIALIZE_ID_NOTIFICATION:
        return "no notification begins here";
    }
    return "an unknown record begins here";
}

void Checker::text(std::string_view &field)
{
    std::size_t place = offset_;
    std::size_t length = get<guint16>();
    const guint8 *bytes = take(length);
    field = bytes ? std::string_view(reinterpret_cast<const char *>(bytes), length) : "";
    if (failed())
        return;
    // Also refuses NUL bytes, at which a reader in C would stop.
    if (!g_utf8_validate_len(field.data(), field.size(), nullptr))
        fail_at(place, "a text is not valid UTF-8 without NUL");
}

namespace {

struct CheckedTags {
    Checker &checker;
    bool allowed;

    std::size_t count() const { return 0; }
    template <class Visit> void each(guint32 count, Visit visit)
    {
        if (count > 0 && !allowed)
            checker.fail("tags stand where none may stand");
        for (guint32 i = 0; i < count && !checker.failed(); ++i) {
            std::string_view tag;
            visit(tag);
            ++checker.shape().tags;
        }
    }
};

struct CheckedKeyValue {
    grammar::KeyValueFields fields;
    CheckedTags tags;
};

bool is_flag(gint value)
{
    return value == FALSE || value == TRUE;
}

void count_key_value(RecordShape &shape, const grammar::KeyValueFields &fields)
{
    ++shape.key_values;
    shape.key_wildcards += fields.key_wildcard ? 1 : 0;
    for (std::string_view text : {fields.name_space, fields.key_nice_name, fields.value_nice_name,
                                  fields.value_user_string, fields.complex_type_name})
        shape.attributes += text.empty() ? 0 : 1;
}

// What is wrong with one key-value taken by itself; NULL for nothing.
const char *fault_of(const grammar::KeyValueFields &fields, bool wildcard_expected)
{
    if (!is_flag(fields.key_wildcard) || !is_flag(fields.value_wildcard) ||
        !is_flag(fields.negated))
        return "a flag is neither 0 nor 1";
    if (fields.key_wildcard && fields.value_wildcard)
        return "a key-value is a wildcard in both key and value";
    if (fields.key_wildcard && !wildcard_expected)
        return "a key wildcard stands among the keyed ones";
    if (!fields.key_wildcard && wildcard_expected)
        return "a keyed key-value stands among the key wildcards";
    if (fields.value_type < VALUE_TYPE_INT || fields.value_type > VALUE_TYPE_STRING)
        return "a value type is none of the four";
    return nullptr;
}

struct CheckedBucket {
    Checker &checker;
    bool wildcard;
    std::string_view name{}; // the key of all, or the value of key wildcards

    std::size_t count() const { return 0; }
    template <class Visit> void each(guint32 count, Visit visit)
    {
        if (count == 0)
            checker.fail("a bucket is empty");
        RecordShape &shape = checker.shape();
        ++shape.buckets;
        shape.longest_bucket = std::max(shape.longest_bucket, count);
        for (guint32 i = 0; i < count && !checker.failed(); ++i) {
            std::size_t place = checker.offset();
            CheckedKeyValue key_value{{}, {checker, true}};
            visit(key_value);
            if (checker.failed())
                return;
            check(key_value.fields, place);
            count_key_value(checker.shape(), key_value.fields);
            std::string_view own = wildcard ? key_value.fields.value : key_value.fields.key;
            if (i > 0 && own != name)
                checker.fail_at(place, "the key-values of a bucket disagree");
            if (i == 0 && !wildcard)
                checker.note_key_name(own);
            name = own;
        }
    }
    void check(const grammar::KeyValueFields &fields, std::size_t place)
    {
        if (const char *fault = fault_of(fields, wildcard))
            checker.fail_at(place, fault);
    }
};

struct CheckedBuckets {
    Checker &checker;
    bool wildcard;
    bool allowed;

    std::size_t count() const { return 0; }
    template <class Visit> void each(guint32 count, Visit visit)
    {
        if (count > 0 && !allowed)
            checker.fail("key wildcards stand outside a subscribe expression");
        std::set<std::string_view> names;
        for (guint32 i = 0; i < count && !checker.failed(); ++i) {
            std::size_t place = checker.offset();
            CheckedBucket bucket{checker, wildcard};
            visit(bucket);
            // A reader puts the second in the place of the first, which nobody would know of.
            if (!checker.failed() && !names.insert(bucket.name).second)
                checker.fail_at(place, "a bucket of the same key came before");
        }
    }
};

struct CheckedAndList {
    Checker &checker;
    bool is_expression;

    CheckedBuckets keyed() const { return {checker, false, true}; }
    CheckedBuckets wildcards() const { return {checker, true, is_expression}; }
};

struct CheckedInspectable {
    CheckedInspectable(Checker &checker, guint32 expected) : checker(checker), expected(expected) {}

    std::size_t count() const { return 0; }
    void begin()
    {
        if (!checker.failed() && type != expected)
            checker.fail("the inspectable is not of the type that its record needs");
    }
    template <class Visit> void each(guint32 count, Visit visit)
    {
        bool is_expression = expected == IT_SUBSCRIBE_EXPRESSION;
        checker.shape().internal = internal;
        if (count == 0 || (count > 1 && !is_expression))
            checker.fail("the number of and-lists is not what the type allows");
        for (guint32 i = 0; i < count && !checker.failed(); ++i)
            visit_alternative(CheckedAndList{checker, is_expression}, visit);
    }
    template <class Visit> void visit_alternative(CheckedAndList &&alternative, Visit visit)
    {
        RecordShape &shape = checker.shape();
        guint32 buckets_before = shape.buckets;
        visit(alternative);
        ++shape.alternatives;
        shape.empty_alternatives += shape.buckets == buckets_before ? 1 : 0;
    }
    CheckedTags tags() const
    {
        return {checker, expected == IT_EVENT || expected == IT_EVENT_DECLARATION};
    }

    Checker &checker;
    guint32 expected;
    guint32 type = 0;
    gint internal = 0;
};

struct CheckedEvent {
    Checker &checker;
    wire::Blob user_data{};
    glong seconds = 0;
    glong microseconds = 0;
    guint32 global_id = 0;
    guint32 local_id = 0;
    guint32 producer_id = 0;
    gint property = 0;

    CheckedInspectable inspectable() const { return {checker, IT_EVENT}; }
};

struct CheckedDeclaration {
    Checker &checker;
    guint32 producer_id = 0;
    guint32 local_id = 0;
    guint32 global_id = 0;
    gint property = 0;
    gpointer callback = nullptr;
    gpointer callback_data = nullptr;

    CheckedInspectable inspectable() const { return {checker, IT_EVENT_DECLARATION}; }
};

struct CheckedExpression {
    Checker &checker;
    guint32 id = 0;
    std::string_view dbus_service{};
    std::string_view dbus_object{};
    guint32 consumer_token = 0;
    gint clandestine = 0;

    CheckedInspectable inspectable() const { return {checker, IT_SUBSCRIBE_EXPRESSION}; }
};

struct CheckedState {
    Checker &checker;
    CheckedInspectable inspectable() const { return {checker, IT_PROPERTY_STATE}; }
};

struct CheckedNotification {
    wire::Blob user_data;
    glong seconds = 0;
    glong microseconds = 0;
    guint32 subscription_id = 0;
    guint32 declaration_id = 0;
    guint32 removed = 0;
    wire::Blob expression;
    wire::Blob declaration;
};

// Goes on with a record inside another one; its faults are reported where they stand in the outer.
void check_nested(Checker &checker, const guint8 *outer, RecordKind kind, const wire::Blob &blob)
{
    if (checker.failed())
        return;
    if (auto fault = check_record(kind, blob.data, blob.size, nullptr, &checker.shape()))
        checker.fail_at(static_cast<std::size_t>(blob.data - outer) + fault->offset,
                        fault->what.c_str());
}

void walk(Checker &checker, RecordKind kind, const guint8 *bytes)
{
    switch (kind) {
    case RecordKind::Event:
        grammar::event(checker, CheckedEvent{checker});
        break;
    case RecordKind::EventDeclaration: {
        CheckedDeclaration declaration{checker};
        grammar::event_declaration(checker, declaration);
        checker.shape().local_id = declaration.local_id;
        break;
    }
    case RecordKind::SubscribeExpression:
        grammar::subscribe_expression(checker, CheckedExpression{checker});
        break;
    case RecordKind::PropertyState:
        grammar::property_state(checker, CheckedState{checker});
        break;
    case RecordKind::Notification: {
        CheckedNotification notification;
        grammar::notification(checker, notification);
        check_nested(checker, bytes, RecordKind::SubscribeExpression, notification.expression);
        check_nested(checker, bytes, RecordKind::EventDeclaration, notification.declaration);
        break;
    }
    }
}

} // namespace

std::optional<Malformation> qandor::check_record(RecordKind kind, const guint8 *bytes,
                                                 std::size_t size,
                                                 std::vector<std::string_view> *key_names,
                                                 RecordShape *shape)
{
    RecordShape unwanted;
    Checker checker(bytes, size);
    checker.collect_key_names(key_names);
    checker.count_into(shape ? shape : &unwanted);
    walk(checker, kind, bytes);
    if (!checker.failed() && !checker.at_end())
        checker.fail("bytes are left over behind the record");
    if (!checker.failed())
        return std::nullopt;
    return Malformation{checker.offset(), checker.what()};
}
