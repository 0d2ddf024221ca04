// SPDX-License-Identifier: LGPL-2.1-or-later

// What users make the switch keep, and where it ends.

#include "switch/accounts.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor;
using testing::HasSubstr;

namespace {

Usage bytes(guint64 size)
{
    return {.declarations = 1, .stored_bytes = size, .declared_bytes = size};
}

TEST(Accounts, ALimitMayBeReachedAndNotPassed)
{
    Limits limits;
    limits.stored_bytes = 100;
    Accounts accounts({limits, {}});
    EXPECT_EQ(accounts.refusal(1, bytes(100)), std::nullopt);
    EXPECT_EQ(accounts.refusal(1, bytes(101)), "A user may have 100 bytes of memory");
    Charge charge = accounts.charge(1, bytes(60));
    EXPECT_EQ(accounts.refusal(1, bytes(40)), std::nullopt);
    EXPECT_NE(accounts.refusal(1, bytes(41)), std::nullopt);
    EXPECT_EQ(accounts.refusal(1, bytes(100), bytes(60)), std::nullopt);
    EXPECT_NE(accounts.refusal(1, bytes(101), bytes(60)), std::nullopt);
}

TEST(Accounts, EachLimitIsItsOwn)
{
    const std::pair<guint64 Usage::*, guint64 Limits::*> pairs[] = {
        {&Usage::peers, &Limits::peers},
        {&Usage::declarations, &Limits::declarations},
        {&Usage::subscriptions, &Limits::subscriptions},
        {&Usage::stored_bytes, &Limits::stored_bytes},
        {&Usage::questions, &Limits::questions},
        {&Usage::key_names, &Limits::key_names},
    };
    for (auto [usage, limit] : pairs) {
        Limits limits;
        limits.*limit = 2;
        Accounts accounts({limits, {}});
        Usage more;
        more.*usage = 2;
        EXPECT_EQ(accounts.refusal(1, more), std::nullopt);
        Charge charge = accounts.charge(1, more);
        more.*usage = 1;
        EXPECT_THAT(accounts.refusal(1, more).value_or(""), HasSubstr("may have 2 "));
    }
}

TEST(Accounts, OneUserDoesNotStarveAnother)
{
    Limits limits;
    limits.declarations = 1;
    Accounts accounts({limits, {}});
    Charge charge = accounts.charge(1, bytes(10));
    EXPECT_NE(accounts.refusal(1, bytes(10)), std::nullopt);
    EXPECT_EQ(accounts.refusal(2, bytes(10)), std::nullopt);
}

TEST(Accounts, AUserMayHaveLimitsOfItsOwn)
{
    Limits common, own;
    common.declarations = 1;
    own.declarations = 2;
    Accounts accounts({common, {{7, own}}});
    Charge charge = accounts.charge(1, bytes(10));
    Charge own_charge = accounts.charge(7, bytes(10));
    EXPECT_EQ(accounts.refusal(1, bytes(10)), "A user may have 1 declarations");
    EXPECT_EQ(accounts.refusal(7, bytes(10)), std::nullopt);
    Charge another = accounts.charge(7, bytes(10));
    EXPECT_EQ(accounts.refusal(7, bytes(10)), "A user may have 2 declarations");
    accounts.set_limits({own, {}});
    EXPECT_EQ(accounts.refusal(1, bytes(10)), std::nullopt);
}

TEST(Accounts, AllTogetherHaveALimitToo)
{
    Limits limits;
    limits.total_stored_bytes = 100;
    Accounts accounts({limits, {}});
    Charge charge = accounts.charge(1, bytes(60));
    EXPECT_EQ(accounts.refusal(2, bytes(41)), "Too many declarations are stored");
    EXPECT_EQ(accounts.refusal(2, bytes(40)), std::nullopt);
    EXPECT_EQ(accounts.refusal(2, {.subscriptions = 1, .stored_bytes = 1000}), std::nullopt);
}

TEST(Accounts, AChargeGoesWithWhatItIsFor)
{
    Accounts accounts;
    {
        Charge first = accounts.charge(1, bytes(60));
        Charge moved = std::move(first);
        EXPECT_EQ(accounts.total().stored_bytes, 60u);
        moved = accounts.charge(1, bytes(5));
        EXPECT_EQ(accounts.total().stored_bytes, 5u);
    }
    EXPECT_EQ(accounts.total().stored_bytes, 0u);
    EXPECT_EQ(accounts.usages()[1].declarations, 0u);
}

TEST(Accounts, WhatIsOverALoweredLimitStaysAndOnlyShrinks)
{
    Accounts accounts;
    Charge charge = accounts.charge(1, bytes(60));
    Limits limits;
    limits.stored_bytes = 50;
    accounts.set_limits({limits, {}});
    EXPECT_NE(accounts.refusal(1, bytes(1)), std::nullopt);
    EXPECT_EQ(accounts.refusal(1, bytes(59), bytes(60)), std::nullopt) << "less than before";
    EXPECT_EQ(accounts.refusal(1, {.subscriptions = 1}), std::nullopt) << "another limit";
}

TEST(Accounts, AKeyNameIsChargedToTheFirstWhoBringsItUp)
{
    Limits limits;
    limits.key_names = 2;
    Accounts accounts({limits, {}});
    EXPECT_EQ(accounts.add_key_names(1, {"a", "b", "a"}), std::nullopt);
    EXPECT_EQ(accounts.add_key_names(1, {"b", "a"}), std::nullopt);
    EXPECT_EQ(accounts.add_key_names(1, {"a", "c"}), "A user may have 2 new key names");
    EXPECT_EQ(accounts.add_key_names(2, {"a", "c"}), std::nullopt);
    EXPECT_EQ(accounts.add_key_names(1, {"c"}), std::nullopt);
    EXPECT_EQ(accounts.usages()[1].key_names, 2u);
    EXPECT_EQ(accounts.usages()[2].key_names, 1u);
}

TEST(Accounts, NamesThatAreRefusedAreNotRemembered)
{
    Limits limits;
    limits.key_names = 1;
    Accounts accounts({limits, {}});
    EXPECT_NE(accounts.add_key_names(1, {"a", "b"}), std::nullopt);
    EXPECT_EQ(accounts.usages()[1].key_names, 0u);
    EXPECT_EQ(accounts.add_key_names(2, {"a"}), std::nullopt);
    EXPECT_EQ(accounts.usages()[2].key_names, 1u);
}

} // namespace
