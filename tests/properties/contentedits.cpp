// SPDX-License-Identifier: LGPL-2.1-or-later

// One random edit of an inspectable and of its plain record.

#include "properties/content.hpp"

#include "properties/logged.hpp"

#include <cinttypes>
#include <cstdio>
#include <functional>

namespace qandor::test {
namespace {

class Edit {
public:
    Edit(inspectable *real, PlainInspectable &plain, RandomRecords &random, const Trace &trace)
        : real_(real), plain_(plain), random_(random), trace_(trace), key_(a_key())
    {
    }
    void make_one();

private:
    std::string a_key();
    std::string a_text();
    PlainKeyValue *its() { return find(plain_, key_); }
    void add_one();
    void add(const PlainKeyValue &one);
    void add_many();
    void begin_another();
    void fill();
    void fill_typed();
    void set_user_string();
    void set_nice_names();
    void set_name_space();
    void set_complex_type_name();
    void set_value_type();
    void tag_key();
    void tag();
    void set_internal();
    void note(const std::string &what) { trace_.note("  " + what + " " + shown(key_)); }
    void require_result(gboolean result, bool expected) const
    {
        require_same<long long>(result, expected, "result");
    }
    bool may_have_tags() const { return plain_.type == Declaration || plain_.type == Event; }

    inspectable *real_;
    PlainInspectable &plain_;
    RandomRecords &random_;
    const Trace &trace_;
    const std::string key_;
};

// Mostly one that is there.
std::string Edit::a_key()
{
    const PlainBuckets &keyed = plain_.and_lists.back().keyed;
    if (keyed.empty() || random_.one_in(3))
        return random_.key();
    return (keyed.begin() + random_.number(static_cast<unsigned>(keyed.size())))->first;
}

std::string Edit::a_text()
{
    std::string text = random_.one_in(4) ? random_.value() : random_.text();
    return text;
}

void Edit::add(const PlainKeyValue &one)
{
    if ((plain_.type == Event || plain_.type == State) && find(plain_, one.key))
        return; // fatal
    trace_.note("  add " + shown(one.key) + " " + shown(one.value));
    require_result(inspectable_add_key_value(
                       real_, one.key_wildcard && random_.one_in(2) ? nullptr : one.key.c_str(),
                       one.key_wildcard, one.value_wildcard ? nullptr : one.value.c_str(),
                       one.value_wildcard, one.negated),
                   true);
    test::add(plain_, one);
}

void Edit::add_one()
{
    if (plain_.type == Expression && random_.one_in(3))
        add(made_for_any_key(random_.value(), random_.one_in(3)));
    else if (random_.one_in(3))
        add(made_open(key_, random_.one_in(4)));
    else
        add(made(key_, random_.value(), random_.one_in(4)));
}

// One kind after the other, either first: both are looked up in other ways once there are many.
void Edit::add_many()
{
    bool keys_first = random_.one_in(2);
    for (bool keys : {keys_first, !keys_first}) {
        if (!keys && plain_.type != Expression)
            continue;
        for (unsigned left = random_.number(random_.most() + 1); left > 0; --left)
            add(keys ? made(random_.key(), random_.value(), random_.one_in(4))
                     : made_for_any_key(random_.value(), random_.one_in(3)));
    }
}

void Edit::begin_another()
{
    note("or");
    if (begin_alternative(plain_)) {
        require_result(inspectable_or(real_), true);
        return;
    }
    require_result(expecting(G_LOG_LEVEL_WARNING,
                             "Only subscribe expressions support the OR statement.",
                             [this] { return inspectable_or(real_); }),
                   false);
}

void Edit::fill()
{
    std::string text = a_text();
    note("fill " + text);
    require_result(inspectable_set_value_as_string(real_, key_.c_str(), text.c_str()),
                   set_value(plain_, key_, text));
}

void Edit::fill_typed()
{
    note("fill typed");
    int type = its() ? its()->value_type : VALUE_TYPE_STRING;
    auto number = static_cast<gint>(random_.id());
    gdouble real_number = static_cast<gdouble>(number) / (1 << random_.number(20));
    gboolean flag = static_cast<gboolean>(random_.number(3));
    std::string text = a_text();
    gconstpointer value = text.c_str();
    char formatted[400];
    if (type == VALUE_TYPE_INT) {
        value = &number;
        text = std::to_string(number);
    } else if (type == VALUE_TYPE_BOOL) {
        value = &flag;
        text = flag ? "1" : "0";
    } else if (type == VALUE_TYPE_DOUBLE) {
        value = &real_number;
        std::snprintf(formatted, sizeof formatted, "%f", real_number);
        text = formatted;
    }
    require_result(inspectable_set_value(real_, key_.c_str(), value),
                   set_value(plain_, key_, text));
}

void Edit::set_user_string()
{
    note("set user string");
    std::string text = a_text();
    if (its())
        its()->value_user_string = text;
    require_result(inspectable_set_value_user_string(real_, key_.c_str(), text.c_str()), its());
}

void Edit::set_nice_names()
{
    note("set nice names");
    std::string key_name = a_text(), value_name = a_text();
    bool has_key_name = random_.one_in(2), has_value_name = random_.one_in(2);
    if (its() && has_key_name)
        its()->key_nice_name = key_name;
    if (its() && has_value_name)
        its()->value_nice_name = value_name;
    require_result(inspectable_set_nice_names(real_, key_.c_str(),
                                              has_key_name ? key_name.c_str() : nullptr,
                                              has_value_name ? value_name.c_str() : nullptr),
                   its());
}

void Edit::set_name_space()
{
    note("set name space");
    std::string text = random_.name_space();
    if (its())
        its()->name_space = text;
    const char *given = text.empty() && random_.one_in(2) ? nullptr : text.c_str();
    require_result(inspectable_set_name_space(real_, key_.c_str(), given), its());
}

void Edit::set_complex_type_name()
{
    note("set complex type name");
    std::string text = a_text();
    if (its())
        its()->complex_type_name = text;
    const char *given = text.empty() && random_.one_in(2) ? nullptr : text.c_str();
    require_result(inspectable_set_complex_type_name(real_, key_.c_str(), given), its());
}

void Edit::set_value_type()
{
    if (!its())
        return; // fatal
    note("set value type");
    its()->value_type = static_cast<int>(1 + random_.number(4));
    require_result(
        inspectable_set_value_type(real_, key_.c_str(), static_cast<guint32>(its()->value_type)),
        true);
}

void Edit::tag_key()
{
    std::string tag = random_.one_in(6) ? state_key_tag : random_.tag();
    note("tag with " + tag);
    require_result(inspectable_add_key_tag(real_, key_.c_str(), tag.c_str()),
                   add_key_tag(plain_, key_, tag));
}

void Edit::tag()
{
    std::string tag = random_.tag();
    trace_.note("  tag " + tag);
    plain_.tags.push_back(tag);
    require_result(inspectable_add_tag(real_, tag.c_str()), true);
}

void Edit::set_internal()
{
    plain_.internal = static_cast<int>(random_.number(2));
    trace_.note("  internal " + std::to_string(plain_.internal));
    require_result(inspectable_set_internal(real_, plain_.internal), true);
}

// What a type does not allow is fatal, and left to tests of its own.
void Edit::make_one()
{
    const std::vector<std::pair<unsigned, void (Edit::*)()>> edits{
        {1 << Declaration | 1 << Event | 1 << Expression | 1 << State, &Edit::add_one},
        {1 << Declaration | 1 << Event | 1 << Expression | 1 << State, &Edit::add_one},
        {1 << Declaration | 1 << Event | 1 << Expression | 1 << State, &Edit::add_one},
        {1 << Declaration | 1 << Event | 1 << Expression | 1 << State, &Edit::add_many},
        {1 << Expression, &Edit::add_many},
        {1 << Expression, &Edit::add_many},
        {1 << Declaration | 1 << Event | 1 << Expression | 1 << State, &Edit::begin_another},
        {1 << Declaration | 1 << Event, &Edit::fill},
        {1 << Declaration | 1 << Event, &Edit::fill_typed},
        {1 << Declaration, &Edit::set_user_string},
        {1 << Declaration, &Edit::set_nice_names},
        {1 << Declaration | 1 << Expression | 1 << State, &Edit::set_name_space},
        {1 << Declaration | 1 << Expression | 1 << State, &Edit::set_complex_type_name},
        {1 << Declaration, &Edit::set_value_type},
        {1 << Declaration | 1 << Event | 1 << State, &Edit::tag_key},
        {1 << Declaration | 1 << Event, &Edit::tag},
        {1 << Declaration | 1 << Event | 1 << Expression | 1 << State, &Edit::set_internal},
    };
    const auto &[types, make] = edits[random_.number(static_cast<unsigned>(edits.size()))];
    if (types & 1U << plain_.type)
        (this->*make)();
}

} // namespace

void edit(inspectable *real, PlainInspectable &plain, RandomRecords &random, const Trace &trace)
{
    Edit(real, plain, random, trace).make_one();
}

} // namespace qandor::test
