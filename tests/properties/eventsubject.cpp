// SPDX-License-Identifier: LGPL-2.1-or-later

// Events.

#include "properties/messagesubjects.hpp"

namespace qandor::test {

void EventSubject::edit(RandomRecords &random, const Trace &trace)
{
    switch (random.number(10)) {
    case 0:
        trace.note("  ids");
        event_set_global_id(record_.get(), plain_.global_id = random.id());
        event_set_local_id(record_.get(), plain_.local_id = random.id());
        event_set_producer_id(record_.get(), plain_.producer_id = random.id());
        break;
    case 1:
        plain_.seconds = static_cast<std::int32_t>(random.id());
        plain_.microseconds = static_cast<std::int32_t>(random.id());
        trace.note("  timestamp");
        event_set_timestamp(record_.get(), plain_.seconds, plain_.microseconds);
        break;
    case 2:
        plain_.user_data = random.user_data();
        trace.note("  user data");
        event_set_user_data(record_.get(), plain_.user_data.data(),
                            static_cast<guint32>(plain_.user_data.size()));
        break;
    case 3:
        plain_.property = static_cast<int>(random.number(2));
        trace.note("  property");
        event_set_property(record_.get(), plain_.property);
        break;
    default:
        test::edit(content(), plain_.content, random, trace);
    }
}

void EventSubject::check_key(const std::string &key) const
{
    const PlainKeyValue *one = find(plain_.content, key);
    const event *its = record_.get();
    auto field = [one](std::string PlainKeyValue::*which) {
        return one ? MaybeText(one->*which) : std::nullopt;
    };
    const char *name = key.c_str();
    require_same(maybe(event_get_value(its, name)), field(&PlainKeyValue::value), "value");
    require_same(maybe(event_get_name_space(its, name)), field(&PlainKeyValue::name_space),
                 "name space");
    require_same(maybe(event_get_complex_type_name(its, name)),
                 field(&PlainKeyValue::complex_type_name), "complex type name");
    require_same(maybe(event_get_value_user_string(its, name)),
                 field(&PlainKeyValue::value_user_string), "user string");
    require_same(maybe(event_get_key_nice_name(its, name)), field(&PlainKeyValue::key_nice_name),
                 "key nice name");
    require_same(maybe(event_get_value_nice_name(its, name)),
                 field(&PlainKeyValue::value_nice_name), "value nice name");
    gint at = event_get_index(its, name);
    require(at >= 0 ? event_get_key_at(its, static_cast<guint>(at)) == key : !one, "index");
    const gchar *text = "untouched";
    if (one && one->value_type == VALUE_TYPE_STRING)
        require(event_get_typed_value(its, name, &text) && one->value == text, "typed value");
    else if (!one)
        require(!event_get_typed_value(its, name, &text) && text == std::string("untouched"),
                "typed value of a key that is not there");
}

void EventSubject::check_reads()
{
    check_bytes();
    test::check_reads(content(), plain_.content);
    const event *its = record_.get();
    require_same<long long>(event_get_global_id(its), plain_.global_id, "global id");
    require_same<long long>(event_get_local_id(its), plain_.local_id, "local id");
    require_same<long long>(event_get_producer_id(its), plain_.producer_id, "producer id");
    require_same<long long>(event_is_property(its), plain_.property, "property");
    require_same<long long>(event_is_internal(its), plain_.content.internal, "internal");
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    GTimeVal time = event_get_timestamp(its);
    G_GNUC_END_IGNORE_DEPRECATIONS
    require_same<long long>(time.tv_sec, plain_.seconds, "seconds");
    require_same<long long>(time.tv_usec, plain_.microseconds, "microseconds");
    Owned<gchar> data(static_cast<gchar *>(event_get_user_data(its)));
    require(plain_.user_data.empty()
                ? !data
                : data && std::string(data.get(), plain_.user_data.size()) == plain_.user_data,
            "user data");
    if (plain_.content.and_lists.size() == 1)
        require_same<long long>(event_is_complete(its), is_complete(plain_.content), "complete");
    check_key("absent");
    for (const auto &[key, bucket] : plain_.content.and_lists.back().keyed)
        check_key(key);
}

void EventSubject::check_forms()
{
    test::check_forms(content());
    check_printed(event_print);
}

SubjectPtr EventSubject::copy() const
{
    PlainEvent plain = plain_;
    plain.content = copied(plain_.content, Event);
    return std::make_unique<EventSubject>(Owned<event>(event_copy(record_.get())), plain);
}

SubjectPtr EventSubject::read_back() const
{
    return std::make_unique<EventSubject>(reread(), test::reread(plain_));
}

void EventSubject::take_content(const Subject &source)
{
    event_set_inspectable(record_.get(), source.content());
    plain_.content = copied(*source.plain_content(), Event);
}

SubjectPtr make_event(RandomRecords &random)
{
    PlainEvent plain;
    plain.content.type = Event;
    if (random.one_in(3))
        return std::make_unique<EventSubject>(Owned<event>(event_new()), plain);
    plain = random.event();
    return std::make_unique<EventSubject>(read_from<event>(plain), reread(plain));
}

} // namespace qandor::test
