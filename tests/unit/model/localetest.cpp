// SPDX-License-Identifier: LGPL-2.1-or-later

// Numbers in a process whose locale writes them with a comma.

#include "support/records.hpp"
#include "support/temporaryfolder.hpp"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>

using namespace qandor::test;

namespace {

// A locale of the test's own making, in force while it lives.
class CommaLocale {
public:
    CommaLocale()
    {
        std::string target = folder_.path() / "de_DE.UTF-8";
        Owned<gchar> command(
            g_strdup_printf("localedef -i de_DE -f UTF-8 '%s' >/dev/null 2>&1", target.c_str()));
        g_spawn_command_line_sync((std::string("sh -c \"") + command.get() + "\"").c_str(), nullptr,
                                  nullptr, nullptr, nullptr);
        g_setenv("LOCPATH", folder_.path().c_str(), TRUE);
        former_ = setlocale(LC_ALL, nullptr);
        is_set_ = setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;
    }
    CommaLocale(const CommaLocale &) = delete;
    CommaLocale &operator=(const CommaLocale &) = delete;
    ~CommaLocale()
    {
        setlocale(LC_ALL, former_.c_str());
        g_unsetenv("LOCPATH");
    }

    bool is_set() const { return is_set_; }

private:
    TemporaryFolder folder_;
    std::string former_;
    bool is_set_;
};

class InACommaLocale : public testing::Test {
protected:
    void SetUp() override
    {
        if (!locale_.is_set())
            GTEST_SKIP()
                << "localedef cannot make de_DE.UTF-8 here: the locale sources are missing";
        char text[16];
        std::snprintf(text, sizeof text, "%.1f", 2.5);
        ASSERT_STREQ(text, "2,5") << "or the test says nothing";
    }

private:
    CommaLocale locale_;
};

TEST_F(InACommaLocale, DoublesAreWrittenWithAPoint)
{
    for (gdouble number : {2.5, -1234567.25, 1e15, 1e300}) {
        Owned<gchar> text(event_utils_value_type_to_string(&number, VALUE_TYPE_DOUBLE));
        EXPECT_NE(std::string(text.get()).find("."), std::string::npos) << text.get();
        EXPECT_EQ(std::string(text.get()).find(","), std::string::npos) << text.get();
    }
    gdouble number = 2.5;
    Owned<gchar> text(event_utils_value_type_to_string(&number, VALUE_TYPE_DOUBLE));
    EXPECT_STREQ(text.get(), "2.500000");
}

TEST_F(InACommaLocale, NumbersAreReadWithAPoint)
{
    Owned<event_declaration> declaration(event_declaration_new(TRUE));
    event_declaration_add_key(declaration.get(), "double", VALUE_TYPE_DOUBLE);
    event_declaration_add_key(declaration.get(), "int", VALUE_TYPE_INT);
    Owned<event> event(event_declaration_generate_event(declaration.get()));
    gdouble number = 2.5;
    event_set_value(event.get(), "double", &number);
    number = 0;
    EXPECT_TRUE(event_get_typed_value(event.get(), "double", &number));
    EXPECT_EQ(number, 2.5);

    inspectable *content = event_get_inspectable(event.get());
    gint integer = 0;
    inspectable_set_value_as_string(content, "int", "-3.9");
    EXPECT_TRUE(event_get_typed_value(event.get(), "int", &integer));
    EXPECT_EQ(integer, -3);
    inspectable_set_value_as_string(content, "double", "1,5");
    EXPECT_TRUE(event_get_typed_value(event.get(), "double", &number));
    EXPECT_EQ(number, 1.0);
}

} // namespace
