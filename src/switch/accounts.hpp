// SPDX-License-Identifier: LGPL-2.1-or-later

// What each user makes the switch keep, held against the limits. What is kept holds a Charge, which
// takes itself off its account when it goes.
#pragma once

#include "model/keyname.hpp"
#include "switch/limits.hpp"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

namespace qandor {

struct Usage {
    guint64 peers = 0;
    guint64 declarations = 0;
    guint64 subscriptions = 0;
    guint64 stored_bytes = 0;
    guint64 questions = 0;
    guint64 key_names = 0;
    guint64 declared_bytes = 0; // the part of the stored bytes that is declarations
    guint64 waiting_bytes = 0;  // of calls that wait for their turn

    Usage &operator+=(const Usage &other);
    Usage &operator-=(const Usage &other);
};

// The usage of one user, and of all together.
struct Account {
    Usage own;
    std::shared_ptr<Account> all; // NULL in the one of all
};

class Charge {
public:
    Charge() = default;
    Charge(std::shared_ptr<Account> account, const Usage &usage);
    Charge(Charge &&other) noexcept
        : account_(std::move(other.account_)), usage_(std::exchange(other.usage_, {}))
    {
    }
    Charge &operator=(Charge &&other) noexcept
    {
        release();
        account_ = std::move(other.account_);
        usage_ = std::exchange(other.usage_, {});
        return *this;
    }
    ~Charge() { release(); }

    const Usage &usage() const { return usage_; }

private:
    void release();

    std::shared_ptr<Account> account_;
    Usage usage_;
};

class Accounts {
public:
    explicit Accounts(UserLimits limits = {}) : limits_(std::move(limits)) {}

    const Limits &limits(guint32 uid) const { return limits_.of(uid); }
    guint64 total_limit() const { return limits_.common.total_stored_bytes; }
    // What is over a new limit stays; nothing is added to it.
    void set_limits(UserLimits limits) { limits_ = std::move(limits); }

    // Says which limit the user would pass with so much more, after giving back what is replaced.
    std::optional<std::string> refusal(guint32 uid, const Usage &more,
                                       const Usage &replaced = {}) const;
    Charge charge(guint32 uid, const Usage &usage);

    // Interns the names that nobody has used before, and counts them as the user's. Says so, and
    // does neither, when they are too many.
    std::optional<std::string> add_key_names(guint32 uid,
                                             const std::vector<std::string_view> &names);

    // By user id.
    std::map<guint32, Usage> usages() const;
    const Usage &total() const { return all_->own; }

private:
    std::shared_ptr<Account> account_of(guint32 uid);
    Usage usage_of(guint32 uid) const;

    UserLimits limits_;
    std::shared_ptr<Account> all_ = std::make_shared<Account>();
    std::map<guint32, std::shared_ptr<Account>> accounts_;
    std::unordered_set<const KeyName *> key_names_;
};

} // namespace qandor
