// SPDX-License-Identifier: LGPL-2.1-or-later

// Event declarations, and the events that they make.

#include "properties/messagesubjects.hpp"

#include "platform/xmlnode.hpp"

#include <cstdint>

namespace qandor::test {
namespace {

constexpr int stamped_seconds = 5, stamped_microseconds = 7;

gboolean stamp(event *its, gpointer)
{
    event_set_timestamp(its, stamped_seconds, stamped_microseconds);
    return TRUE;
}

template <class Pointer> std::uint32_t low_bits(Pointer pointer)
{
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(pointer));
}

} // namespace

void DeclarationSubject::add_key(RandomRecords &random, const Trace &trace)
{
    std::string key = random.key();
    auto type = static_cast<int>(random.number(6));
    trace.note("  add key " + shown(key) + " of type " + std::to_string(type));
    if (type < VALUE_TYPE_INT || type > VALUE_TYPE_STRING) {
        require(!expecting(G_LOG_LEVEL_CRITICAL, "Invalid ValueType: " + std::to_string(type),
                           [&] {
                               return event_declaration_add_key(record_.get(), key.c_str(),
                                                                static_cast<guint32>(type));
                           }),
                "a key of an invalid type is added");
        return;
    }
    add(plain_.content, made_open(key));
    find(plain_.content, key)->value_type = type;
    if (random.one_in(2) || type != VALUE_TYPE_STRING) {
        require(event_declaration_add_key(record_.get(), key.c_str(), static_cast<guint32>(type)),
                "add key");
        return;
    }
    std::string value = random.value();
    set_value(plain_.content, key, value);
    require(event_declaration_add_key_value(record_.get(), key.c_str(), value.c_str(),
                                            static_cast<guint32>(type)),
            "add key with value");
}

void DeclarationSubject::make_property(RandomRecords &random, const Trace &trace)
{
    std::string key = random.key();
    bool has_key = random.one_in(2), has_callback = random.one_in(2);
    trace.note("  property " + (has_key ? shown(key) : "") + (has_callback ? " stamped" : ""));
    plain_.property = 1;
    plain_.callback = has_callback ? low_bits(stamp) : 0;
    plain_.callback_data = low_bits(this);
    may_call_ = true;
    bool expected = !has_key || add_key_tag(plain_.content, key, state_key_tag);
    require_same<long long>(event_declaration_set_property(record_.get(),
                                                           has_key ? key.c_str() : nullptr,
                                                           has_callback ? stamp : nullptr, this),
                            expected, "set property");
}

void DeclarationSubject::edit(RandomRecords &random, const Trace &trace)
{
    switch (random.number(8)) {
    case 0:
        trace.note("  ids");
        event_declaration_set_global_id(record_.get(), plain_.global_id = random.id());
        event_declaration_set_local_id(record_.get(), plain_.local_id = random.id());
        event_declaration_set_producer_id(record_.get(), plain_.producer_id = random.id());
        break;
    case 1:
        make_property(random, trace);
        break;
    case 2:
    case 3:
        add_key(random, trace);
        break;
    default:
        test::edit(content(), plain_.content, random, trace);
    }
}

void DeclarationSubject::check_reads()
{
    check_bytes();
    test::check_reads(content(), plain_.content);
    const event_declaration *its = record_.get();
    require_same<long long>(event_declaration_get_global_id(its), plain_.global_id, "global id");
    require_same<long long>(event_declaration_get_local_id(its), plain_.local_id, "local id");
    require_same<long long>(event_declaration_get_producer_id(its), plain_.producer_id,
                            "producer id");
    require_same<long long>(event_declaration_is_property(its), plain_.property, "property");
    require_same<long long>(event_declaration_is_internal(its), plain_.content.internal,
                            "internal");
}

// Ids, callback and flag are not in it: a property is what has a state key.
void DeclarationSubject::check_xml() const
{
    Owned<gchar> text(event_declaration_serialize_xml(record_.get()));
    XmlTreeOwner tree(xmlnode_parse_string(text.get()));
    require(tree && to_bytes(from_xml(tree.get(), "declare", Declaration)) ==
                        to_bytes(from_bytes<PlainDeclaration>(bytes()).content),
            std::string("XML: ") + text.get());
    PlainDeclaration expected;
    expected.content = read_from_xml(plain_.content, Declaration);
    expected.content.internal = plain_.content.internal == 1;
    expected.property = has_key_with_tag(expected.content, state_key_tag);
    DeclarationSubject(Owned<event_declaration>(event_declaration_deserialize_xml(text.get())),
                       expected)
        .check_reads();
}

void DeclarationSubject::check_forms()
{
    test::check_forms(content());
    check_printed(event_declaration_print);
    check_xml();
}

SubjectPtr DeclarationSubject::copy() const
{
    PlainDeclaration plain = plain_;
    plain.content = copied(plain_.content, Declaration);
    auto made = std::make_unique<DeclarationSubject>(
        Owned<event_declaration>(event_declaration_copy(record_.get())), plain);
    made->may_call_ = may_call_;
    return made;
}

SubjectPtr DeclarationSubject::read_back() const
{
    auto made = std::make_unique<DeclarationSubject>(reread(), test::reread(plain_));
    made->may_call_ = plain_.callback == 0;
    return made;
}

PlainEvent DeclarationSubject::plain_event() const
{
    PlainEvent made;
    made.content = copied(plain_.content, Event);
    made.global_id = plain_.global_id;
    made.local_id = plain_.local_id;
    made.producer_id = plain_.producer_id;
    made.property = plain_.property;
    return made;
}

SubjectPtr DeclarationSubject::property_event() const
{
    if (!may_call_)
        return nullptr;
    Owned<event> made(event_declaration_get_property_event(record_.get()));
    require(!made == !(plain_.property && is_complete(plain_.content)), "property event");
    if (!made)
        return nullptr;
    PlainEvent plain = plain_event();
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    GTimeVal time = event_get_timestamp(made.get());
    G_GNUC_END_IGNORE_DEPRECATIONS
    plain.seconds = plain_.callback ? stamped_seconds : static_cast<std::int32_t>(time.tv_sec);
    plain.microseconds =
        plain_.callback ? stamped_microseconds : static_cast<std::int32_t>(time.tv_usec);
    require(time.tv_sec > 0, "property event is not stamped");
    return std::make_unique<EventSubject>(std::move(made), plain);
}

SubjectPtr event_from(const Subject &source, RandomRecords &random)
{
    const auto *declaration = dynamic_cast<const DeclarationSubject *>(&source);
    if (!declaration)
        return nullptr;
    if (random.one_in(3))
        return declaration->property_event();
    return std::make_unique<EventSubject>(
        Owned<event>(event_declaration_generate_event(declaration->record())),
        declaration->plain_event());
}

bool give_content(Subject &taker, const Subject &source)
{
    auto *its = dynamic_cast<EventSubject *>(&taker);
    if (!its || !source.content())
        return false;
    its->take_content(source);
    return true;
}

SubjectPtr make_declaration(RandomRecords &random)
{
    PlainDeclaration plain;
    if (random.one_in(2)) {
        plain.content.internal = static_cast<int>(random.number(2));
        return std::make_unique<DeclarationSubject>(
            Owned<event_declaration>(event_declaration_new(plain.content.internal)), plain);
    }
    plain = random.declaration();
    plain.callback = 0; // nobody calls what strangers write there
    return std::make_unique<DeclarationSubject>(read_from<event_declaration>(plain), reread(plain));
}

} // namespace qandor::test
