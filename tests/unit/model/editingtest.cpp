// SPDX-License-Identifier: LGPL-2.1-or-later

// Random sequences of editing calls, held after each against a list that is searched from its
// beginning. The sequences are long enough to pass from few keys, which are looked at one by one,
// to many, for which there are tables.

#include "model/inspectable.hpp"
#include "unit/model/naivemodel.hpp"

#include <qandor/serialize.h>

#include <gtest/gtest.h>

#include <random>
#include <set>

using namespace qandor;
using namespace qandor::test;

namespace {

using Record = std::unique_ptr<inspectable>;

class Editing {
public:
    Editing(guint32 type, unsigned seed, unsigned wildcards)
        : type_(type), engine_(seed), wildcards_(wildcards),
          record_(std::make_unique<inspectable>(type)), plain_(1)
    {
    }

    void change()
    {
        switch (number(12)) {
        case 0:
            set_name_space();
            break;
        case 1:
            set_value();
            break;
        case 2:
            copy();
            break;
        case 3:
            if (number(8) == 0)
                begin_alternative();
            break;
        default:
            add();
        }
    }

    void check()
    {
        const NaiveAndList &list = plain_.back();
        std::set<std::string> keys, wanted;
        for (unsigned i = 0; i < key_count; ++i) {
            std::string key = "key" + std::to_string(i);
            const NaiveKeyValue *first = find(key);
            const gchar *value = inspectable_get_value(record_.get(), key.c_str());
            ASSERT_EQ(value != nullptr, first != nullptr) << key;
            if (first) {
                ASSERT_EQ(value, first->value);
                ASSERT_EQ(inspectable_get_name_space(record_.get(), key.c_str()),
                          first->name_space);
            }
        }
        for (const NaiveKeyValue &one : list)
            (one.key_wildcard ? wanted : keys).insert(one.key_wildcard ? one.value : one.key);
        ASSERT_EQ(record_->current()->keyed().size(), keys.size());
        ASSERT_EQ(record_->current()->wildcards().size(), wanted.size());
        Record same(inspectable_copy(record_.get(), type_));
        ASSERT_TRUE(inspectable_is_equal(record_.get(), same.get()));
        check_matching();
    }

    // What is written has each key once.
    void read_again()
    {
        ArrayOwner bytes(serialize_create_array());
        inspectable_serialize_internal(record_.get(), bytes.get());
        guint index = 0;
        Record read(inspectable_deserialize_internal(bytes.get(), &index));
        ASSERT_TRUE(inspectable_is_equal(record_.get(), read.get()));
        if (type_ == IT_SUBSCRIBE_EXPRESSION)
            record_ = std::move(read);
    }

private:
    static constexpr unsigned key_count = 30;

    unsigned number(unsigned limit) { return static_cast<unsigned>(engine_() % limit); }
    std::string any_key() { return "key" + std::to_string(number(key_count)); }
    std::string any_value() { return "v" + std::to_string(number(30)); }

    NaiveKeyValue *find(const std::string &key)
    {
        for (NaiveKeyValue &one : plain_.back())
            if (!one.key_wildcard && one.key == key)
                return &one;
        return nullptr;
    }

    void add()
    {
        bool is_expression = type_ == IT_SUBSCRIBE_EXPRESSION;
        NaiveKeyValue one;
        one.key_wildcard = is_expression && number(100) < wildcards_;
        one.key = one.key_wildcard ? "" : any_key();
        one.value_wildcard = !one.key_wildcard && number(5) == 0;
        one.value = one.value_wildcard ? "" : any_value();
        one.negated = is_expression && number(3) == 0;
        if (type_ == IT_EVENT && find(one.key))
            return;
        if (type_ == IT_EVENT_DECLARATION)
            std::erase_if(plain_.back(),
                          [&one](const NaiveKeyValue &other) { return other.key == one.key; });
        plain_.back().push_back(one);
        inspectable_add_key_value(record_.get(), one.key.c_str(), one.key_wildcard,
                                  one.value.c_str(), one.value_wildcard, one.negated);
    }

    void set_name_space()
    {
        std::string key = any_key(), name_space = number(2) ? "n" : "";
        if (type_ == IT_EVENT)
            return;
        NaiveKeyValue *first = find(key);
        if (first)
            first->name_space = name_space;
        ASSERT_EQ(inspectable_set_name_space(record_.get(), key.c_str(), name_space.c_str()),
                  first != nullptr);
    }

    void set_value()
    {
        std::string key = any_key(), value = any_value();
        if (type_ == IT_SUBSCRIBE_EXPRESSION)
            return;
        NaiveKeyValue *first = find(key);
        bool is_open = first && first->value_wildcard;
        gboolean is_set =
            inspectable_set_value_as_string(record_.get(), key.c_str(), value.c_str());
        ASSERT_TRUE(is_set || !is_open);
        if (is_set) {
            ASSERT_TRUE(first);
            first->value = value;
            first->value_wildcard = false;
        }
    }

    void copy() { record_ = Record(inspectable_copy(record_.get(), type_)); }

    void begin_alternative()
    {
        if (type_ != IT_SUBSCRIBE_EXPRESSION)
            return;
        inspectable_or(record_.get());
        plain_.emplace_back();
    }

    void check_matching()
    {
        NaiveInspectable values(1);
        Record event = std::make_unique<inspectable>(IT_EVENT);
        for (unsigned i = 0; i < key_count; ++i) {
            NaiveKeyValue one;
            one.key = "key" + std::to_string(i);
            const NaiveKeyValue *wanted = find(one.key);
            one.value = wanted && number(10) ? wanted->value : any_value();
            if (number(10) == 0)
                continue;
            values[0].push_back(one);
            inspectable_add_key_value(event.get(), one.key.c_str(), FALSE, one.value.c_str(), FALSE,
                                      FALSE);
        }
        ASSERT_EQ(static_cast<bool>(inspectable_contains(event.get(), record_.get())),
                  naive_contains(values, plain_));
    }

    const guint32 type_;
    std::mt19937 engine_;
    const unsigned wildcards_;
    Record record_;
    NaiveInspectable plain_;
};

struct Sequences {
    const char *name;
    guint32 type;
    unsigned wildcards; // of a hundred
};

class EditingProperty : public testing::TestWithParam<Sequences> {};

TEST_P(EditingProperty, EveryStepDoesWhatItDoesToAPlainList)
{
    for (unsigned seed = 1; seed <= 15; ++seed) {
        Editing editing(GetParam().type, seed, GetParam().wildcards);
        for (int step = 0; step < 100; ++step) {
            SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(step));
            ASSERT_NO_FATAL_FAILURE(editing.change());
            ASSERT_NO_FATAL_FAILURE(editing.check());
            if (step % 10 != 9)
                continue;
            ASSERT_NO_FATAL_FAILURE(editing.read_again());
        }
    }
}

const Sequences sequences[] = {
    {"Event", IT_EVENT, 0},
    {"Declaration", IT_EVENT_DECLARATION, 0},
    {"Expression", IT_SUBSCRIBE_EXPRESSION, 0},
    {"ExpressionWithSomeKeyWildcards", IT_SUBSCRIBE_EXPRESSION, 30},
    {"ExpressionWithManyKeyWildcards", IT_SUBSCRIBE_EXPRESSION, 75},
};

INSTANTIATE_TEST_SUITE_P(, EditingProperty, testing::ValuesIn(sequences),
                         [](const auto &info) { return std::string(info.param.name); });

} // namespace
