// SPDX-License-Identifier: LGPL-2.1-or-later

// Inspectables of every type, and single key-values.

#include "properties/subjectof.hpp"

#include "platform/xmlnode.hpp"

namespace qandor::test {
namespace {

class InspectableSubject : public SubjectOf<inspectable, PlainInspectable> {
public:
    using SubjectOf::SubjectOf;

    std::string name() const override { return "inspectable " + std::to_string(plain_.type); }
    void edit(RandomRecords &random, const Trace &trace) override
    {
        if (random.one_in(8)) {
            int type = static_cast<int>(random.number(4));
            trace.note("  becomes of type " + std::to_string(type));
            record_.reset(inspectable_copy(record_.get(), static_cast<guint32>(type)));
            plain_ = copied(plain_, type);
            return;
        }
        test::edit(record_.get(), plain_, random, trace);
    }
    void check_reads() override { test::check_reads(record_.get(), plain_); }
    void check_forms() override { test::check_forms(record_.get()); }
    SubjectPtr copy() const override
    {
        auto type = static_cast<guint32>(plain_.type);
        return std::make_unique<InspectableSubject>(
            Owned<inspectable>(inspectable_copy(record_.get(), type)), copied(plain_, plain_.type));
    }
    SubjectPtr read_back() const override
    {
        return std::make_unique<InspectableSubject>(reread(), test::reread(plain_));
    }
    inspectable *content() const override { return record_.get(); }
    const PlainInspectable *plain_content() const override { return &plain_; }
};

// Of the flags any number but 0 is true, and 1 alone is what makes a wildcard of a key-value.
class KeyValueSubject : public SubjectOf<key_value, PlainKeyValue> {
public:
    using SubjectOf::SubjectOf;

    std::string name() const override { return "key-value"; }
    void edit(RandomRecords &random, const Trace &trace) override
    {
        std::string tag = random.tag();
        trace.note("  tag " + tag);
        if (random.one_in(3)) {
            key_value_give_tag(record_.get(), g_strdup(tag.c_str()));
            plain_.tags.push_back(tag);
            return;
        }
        key_value_add_tag(record_.get(), tag.c_str());
        if (!has(plain_.tags, tag))
            plain_.tags.push_back(tag);
    }
    void check_reads() override { check_bytes(); }
    void check_forms() override
    {
        require_same(lines_of([this] { key_value_print(record_.get()); }), {printed(plain_)},
                     "printed");
        XmlTreeOwner tree(key_value_serialize_xml(record_.get()));
        Owned<key_value> from_xml(key_value_deserialize_xml(tree.get()));
        PlainKeyValue expected = plain_;
        expected.tags = distinct(plain_.tags);
        expected.negated = plain_.negated == 1; // nothing else is written as "true"
        if (plain_.key_wildcard <= 1 && plain_.value_wildcard <= 1)
            require(from_bytes<PlainKeyValue>(plain_bytes(write(from_xml.get()).get())) == expected,
                    "XML");
    }
    SubjectPtr copy() const override
    {
        PlainKeyValue copy = plain_;
        copy.tags = distinct(plain_.tags);
        return std::make_unique<KeyValueSubject>(Owned<key_value>(key_value_copy(record_.get())),
                                                 copy);
    }
    SubjectPtr read_back() const override
    {
        return std::make_unique<KeyValueSubject>(reread(), test::reread(plain_));
    }
    std::optional<KeyValuePair> single() const override { return {{record_.get(), plain_}}; }
};

Owned<key_value> make(const PlainKeyValue &plain)
{
    return Owned<key_value>(
        key_value_new(plain.key.c_str(), plain.key_wildcard, plain.name_space.c_str(),
                      plain.key_nice_name.c_str(), plain.value.c_str(), plain.value_wildcard,
                      plain.value_nice_name.c_str(), plain.value_user_string.c_str(),
                      plain.complex_type_name.c_str(), plain.negated));
}

} // namespace

SubjectPtr make_inspectable(RandomRecords &random)
{
    int type = static_cast<int>(random.number(4));
    if (random.one_in(2)) {
        PlainInspectable plain = random.inspectable(type);
        return std::make_unique<InspectableSubject>(read_from<inspectable>(plain), reread(plain));
    }
    PlainInspectable plain;
    plain.type = type;
    return std::make_unique<InspectableSubject>(
        Owned<inspectable>(inspectable_new(static_cast<guint32>(type))), plain);
}

SubjectPtr make_key_value(RandomRecords &random)
{
    PlainKeyValue plain = random.key_value(true);
    plain.tags.clear();
    plain.value_type = VALUE_TYPE_STRING;
    for (int *flag : {&plain.key_wildcard, &plain.value_wildcard, &plain.negated})
        if (random.one_in(8) && !plain.key_wildcard && !plain.value_wildcard)
            *flag = 2;
    Owned<key_value> record = make(plain);
    return std::make_unique<KeyValueSubject>(std::move(record), plain);
}

} // namespace qandor::test
