// SPDX-License-Identifier: LGPL-2.1-or-later

// Property states, with the two expressions that come from each.

#include "properties/subjectof.hpp"

#include "platform/xmlnode.hpp"

namespace qandor::test {
namespace {

// Reading, and asking for an expression, locks a state: its expressions are made then.
class StateSubject : public SubjectOf<property_state, PlainState> {
public:
    using SubjectOf::SubjectOf;
    StateSubject(Owned<property_state> record, PlainState plain, bool is_locked)
        : SubjectOf(std::move(record), std::move(plain))
    {
        if (is_locked)
            lock();
    }

    std::string name() const override { return "state"; }
    void edit(RandomRecords &random, const Trace &trace) override;
    void check_reads() override
    {
        check_bytes();
        test::check_reads(content(), plain_.content);
        if (is_locked_)
            check_expressions();
    }
    void check_forms() override;
    SubjectPtr copy() const override { return nullptr; }
    SubjectPtr read_back() const override
    {
        return std::make_unique<StateSubject>(reread(), test::reread(plain_), true);
    }
    inspectable *content() const override { return property_state_get_inspectable(record_.get()); }
    const PlainInspectable *plain_content() const override { return &plain_.content; }

private:
    void add_pair(RandomRecords &random, const Trace &trace);
    void lock();
    void check_expressions() const;

    bool is_locked_ = false;
    PlainInspectable expression_, inverted_;
};

void StateSubject::lock()
{
    if (is_locked_)
        return;
    is_locked_ = true;
    require(property_state_get_subscribe_expression(record_.get()), "expression");
    expression_ = expression_for(plain_.content, false);
    inverted_ = expression_for(plain_.content, true);
}

void StateSubject::check_expressions() const
{
    auto check = [](subscribe_expression *its, const PlainInspectable &expected) {
        test::check_reads(subscribe_expression_get_inspectable(its), expected);
        require(!subscribe_expression_get_clandestine(its), "clandestine");
    };
    check(property_state_get_subscribe_expression(record_.get()), expression_);
    check(property_state_get_inverted_subscribe_expression(record_.get()), inverted_);
}

void StateSubject::add_pair(RandomRecords &random, const Trace &trace)
{
    std::string key = random.key(), value = random.value();
    bool is_state_key = random.one_in(3);
    trace.note("  add " + shown(key) + (is_state_key ? " as the state key" : ""));
    auto add_it = [&] {
        return property_state_add_key_value(record_.get(), key.c_str(), value.c_str(),
                                            is_state_key);
    };
    if (is_locked_) {
        require(!expecting(G_LOG_LEVEL_CRITICAL,
                           "property_state_add_key_value: assertion '!self->locked' failed",
                           add_it),
                "a locked state is changed");
        return;
    }
    bool expected = !find(plain_.content, key) &&
                    !(is_state_key && has_key_with_tag(plain_.content, state_key_tag));
    if (expected) {
        add(plain_.content, made(key, value));
        if (is_state_key)
            add_key_tag(plain_.content, key, state_key_tag);
    }
    require_same<long long>(add_it(), expected, "add pair");
}

void StateSubject::edit(RandomRecords &random, const Trace &trace)
{
    switch (random.number(6)) {
    case 0:
        trace.note("  lock");
        lock();
        break;
    case 1: {
        std::string key = random.key(), name_space = random.name_space();
        trace.note("  name space of " + shown(key));
        PlainKeyValue *one = find(plain_.content, key);
        if (one)
            one->name_space = name_space;
        require_same<long long>(
            property_state_set_name_space(record_.get(), key.c_str(), name_space.c_str()),
            one != nullptr, "set name space");
        break;
    }
    case 2: // by the back door, locked or not
        test::edit(content(), plain_.content, random, trace);
        break;
    default:
        add_pair(random, trace);
    }
}

void StateSubject::check_forms()
{
    test::check_forms(content());
    check_printed(property_state_print);
    if (!plain_.content.tags.empty())
        return;
    Owned<gchar> text(property_state_serialize_xml(record_.get()));
    int state_keys = 0;
    PlainInspectable expected = read_from_xml(plain_.content, State);
    for (const auto &[key, bucket] : expected.and_lists.back().keyed)
        state_keys += has(bucket.front().tags, state_key_tag) ? 1 : 0;
    LogCapture capture;
    Owned<property_state> read(property_state_deserialize_xml(text.get()));
    if (state_keys == 1) {
        require(read && capture.warnings().empty(), "XML is not read");
        StateSubject(std::move(read), {expected}, true).check_reads();
        return;
    }
    require(!read && capture.warnings().size() == 2, "XML without a state key is read");
    require_same(capture.warnings()[0],
                 "Expected to find 1 keyvalue tagged with 'property-state' but found " +
                     std::to_string(state_keys),
                 "warning");
}

} // namespace

SubjectPtr make_state(RandomRecords &random)
{
    PlainState plain;
    plain.content.type = State;
    if (random.one_in(2))
        return std::make_unique<StateSubject>(Owned<property_state>(property_state_new()), plain);
    plain = random.state();
    return std::make_unique<StateSubject>(read_from<property_state>(plain), reread(plain), true);
}

} // namespace qandor::test
