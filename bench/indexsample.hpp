// SPDX-License-Identifier: LGPL-2.1-or-later

// The sets of expressions that the index is measured with. In each, ten satisfy the event.
#pragma once

#include "bench/sample.hpp"
#include "model/expressionindex.hpp"

#include <memory>
#include <string>

namespace qandor::bench {

struct InspectableDeleter {
    void operator()(inspectable *record) const { inspectable_free(record); }
};
using InspectableOwner = std::unique_ptr<inspectable, InspectableDeleter>;

// Conditions one after another.
class Conditions {
public:
    Conditions &is(const std::string &key, const std::string &value) { return add(key, value, 0); }
    Conditions &is_not(const std::string &key, const std::string &value)
    {
        return add(key, value, 1);
    }
    Conditions &has(const std::string &key)
    {
        inspectable_add_key_value(made_, key.c_str(), FALSE, nullptr, TRUE, FALSE);
        return *this;
    }
    Conditions &lacks(const std::string &key)
    {
        inspectable_add_key_value(made_, key.c_str(), FALSE, nullptr, TRUE, TRUE);
        return *this;
    }
    Conditions &has_value(const std::string &value)
    {
        inspectable_add_key_value(made_, nullptr, TRUE, value.c_str(), FALSE, FALSE);
        return *this;
    }
    Conditions &either()
    {
        inspectable_or(made_);
        return *this;
    }
    operator inspectable *() const { return made_; }

private:
    Conditions &add(const std::string &key, const std::string &value, gboolean negated)
    {
        inspectable_add_key_value(made_, key.c_str(), FALSE, value.c_str(), FALSE, negated);
        return *this;
    }

    inspectable *made_ = inspectable_new(IT_SUBSCRIBE_EXPRESSION);
};

struct Set {
    const char *name;
    bool of_declarations;
    inspectable *(*make)(unsigned i, unsigned size);
    inspectable *(*make_container)();
    void (*vary)(inspectable *container, unsigned i, unsigned size);
};

inline std::string text(const char *prefix, unsigned number)
{
    return prefix + std::to_string(number);
}

// The sample's event, with values that can be set as text.
inline inspectable *new_event()
{
    event_declaration *declaration = new_declaration();
    event *filled = event_declaration_generate_event(declaration);
    fill(filled);
    inspectable *made = inspectable_copy(event_get_inspectable(filled), IT_EVENT);
    event_free(filled);
    event_declaration_free(declaration);
    return made;
}

inline void set(inspectable *container, const char *key, const std::string &value)
{
    inspectable_set_value_as_string(container, key, value.c_str());
}

inline inspectable *selective(unsigned i, unsigned)
{
    return Conditions()
        .is("topic0", "Device")
        .is("state", text("s", i / 10))
        .is_not("unit", "none");
}

inline void vary_state(inspectable *container, unsigned i, unsigned size)
{
    set(container, "state", text("s", i % (size / 10)));
}

// Each condition holds for a tenth of the events, and all together for ten expressions.
inline inspectable *unselective(unsigned i, unsigned)
{
    i /= 10;
    return Conditions()
        .is("topic0", "Device")
        .is("topic1", text("a", i % 10))
        .is("state", text("b", i / 10 % 10))
        .is("unit", text("c", i / 100 % 10))
        .is("count", text("d", i / 1000 % 10));
}

inline void vary_all(inspectable *container, unsigned i, unsigned size)
{
    i %= size / 10;
    set(container, "topic1", text("a", i % 10));
    set(container, "state", text("b", i / 10 % 10));
    set(container, "unit", text("c", i / 100 % 10));
    set(container, "count", text("d", i / 1000 % 10));
}

// Nothing but conditions that must not hold. The event breaks one that many of the others have.
inline inspectable *negated(unsigned i, unsigned)
{
    Conditions conditions;
    conditions.is_not("state", text("t", i));
    if (i < 10)
        return conditions.is_not("unit", "none");
    return i % 2 ? conditions.is_not("unit", text("c", 0)) : conditions.lacks("count");
}

inline void vary_unit(inspectable *container, unsigned, unsigned)
{
    set(container, "unit", "c0");
}

// Pairs of what nearly all events have, in all combinations, beside what tells them apart.
inline inspectable *pairs(unsigned i, unsigned)
{
    static const char *const usual[][2] = {{"topic1", "Load"},  {"memory", "23061"},
                                           {"active", "1"},     {"count", "117"},
                                           {"unit", "percent"}, {"topic0", "Device"}};
    unsigned one = i % 6, other = (one + 1 + i / 6 % 5) % 6;
    return Conditions()
        .is(usual[one][0], usual[one][1])
        .is(usual[other][0], usual[other][1])
        .is("state", text("s", i / 10));
}

// A bit of everything.
inline inspectable *mixed(unsigned i, unsigned size)
{
    std::string state = text("s", i / 10);
    switch (i % 10) {
    case 0:
        return Conditions().is("state", state).is("state", text("r", i));
    case 1:
        return Conditions().has("load").is("state", state);
    case 2:
        return Conditions().has_value(state);
    case 3:
        return Conditions().is("topic0", "Other").either().is("state", state).has("unit");
    case 4:
        return Conditions()
            .is_not("unit", "x")
            .is("state", state)
            .either()
            .is("topic0", text("T", i));
    case 5:
        return Conditions().is("topic0", "Device").has("count").has_value(state);
    case 6:
        return Conditions().is_not("topic0", "Device").either().is("state", state);
    case 7:
        return Conditions().lacks("count").is_not("state", state).either().is("state", state);
    case 8:
        return Conditions().is("topic0", "Device").is("topic1", "Load").is("state", state);
    default:
        return selective(i, size);
    }
}

// Declarations of ten topics' worth of expressions each.
inline inspectable *of_topic(unsigned i, unsigned)
{
    return Conditions()
        .is("state", text("s", i % 3))
        .is("topic0", text("T", i / 10))
        .is("count", text("", i));
}

inline inspectable *new_declaration(unsigned topic)
{
    event_declaration *declaration = qandor::bench::new_declaration();
    event_declaration_add_key_value(declaration, "topic0", text("T", topic).c_str(),
                                    VALUE_TYPE_STRING);
    inspectable *made =
        inspectable_copy(event_declaration_get_inspectable(declaration), IT_EVENT_DECLARATION);
    event_declaration_free(declaration);
    return made;
}

inline inspectable *new_topic_expression(unsigned topic, unsigned i)
{
    return of_topic(topic * 10 + i % 10, 0);
}

inline const Set sets[] = {
    {"selective", false, selective, new_event, vary_state},
    {"unselective", false, unselective, new_event, vary_all},
    {"negated", false, negated, new_event, vary_unit},
    {"pairs", false, pairs, new_event, vary_state},
    {"mixed", false, mixed, new_event, vary_state},
    {"declaration", true, of_topic, [] { return new_declaration(0); },
     [](inspectable *container, unsigned i, unsigned size) {
         set(container, "topic0", text("T", i % (size / 10)));
     }},
};

} // namespace qandor::bench
