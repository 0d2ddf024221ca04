// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/accounts.hpp"

#include "model/keyedhash.hpp"

#include <algorithm>

namespace qandor {
namespace {

constexpr guint64 Usage::*parts[] = {
    &Usage::peers,     &Usage::declarations, &Usage::subscriptions,  &Usage::stored_bytes,
    &Usage::questions, &Usage::key_names,    &Usage::declared_bytes, &Usage::waiting_bytes,
};

struct Bound {
    guint64 Usage::*usage;
    guint64 Limits::*limit;
    const char *text;
};

constexpr Bound own_bounds[] = {
    {&Usage::peers, &Limits::peers, "objects that declare or subscribe"},
    {&Usage::declarations, &Limits::declarations, "declarations"},
    {&Usage::subscriptions, &Limits::subscriptions, "subscriptions"},
    {&Usage::stored_bytes, &Limits::stored_bytes, "bytes of memory"},
    {&Usage::questions, &Limits::questions, "questions for a state"},
    {&Usage::key_names, &Limits::key_names, "new key names"},
    {&Usage::waiting_bytes, &Limits::stored_bytes, "bytes of calls that wait"},
};

// Whether more would pass the limit. What adds nothing to it may be over it already.
bool is_over(guint64 used, guint64 more, guint64 replaced, guint64 limit)
{
    return more > replaced && used - std::min(used, replaced) + more > limit;
}

} // namespace

Usage &Usage::operator+=(const Usage &other)
{
    for (auto part : parts)
        this->*part += other.*part;
    return *this;
}

Usage &Usage::operator-=(const Usage &other)
{
    for (auto part : parts)
        this->*part -= other.*part;
    return *this;
}

Charge::Charge(std::shared_ptr<Account> account, const Usage &usage)
    : account_(std::move(account)), usage_(usage)
{
    account_->own += usage_;
    account_->all->own += usage_;
}

void Charge::release()
{
    if (!account_)
        return;
    account_->own -= usage_;
    account_->all->own -= usage_;
    account_.reset();
}

std::shared_ptr<Account> Accounts::account_of(guint32 uid)
{
    std::shared_ptr<Account> &account = accounts_[uid];
    if (!account)
        account = std::make_shared<Account>(Account{{}, all_});
    return account;
}

Usage Accounts::usage_of(guint32 uid) const
{
    auto found = accounts_.find(uid);
    return found == accounts_.end() ? Usage{} : found->second->own;
}

std::optional<std::string> Accounts::refusal(guint32 uid, const Usage &more,
                                             const Usage &replaced) const
{
    Usage used = usage_of(uid);
    const Limits &limits = limits_.of(uid);
    for (const Bound &bound : own_bounds)
        if (is_over(used.*bound.usage, more.*bound.usage, replaced.*bound.usage,
                    limits.*bound.limit))
            return "A user may have " + std::to_string(limits.*bound.limit) + " " + bound.text;
    if (is_over(total().declared_bytes, more.declared_bytes, replaced.declared_bytes,
                total_limit()))
        return "Too many declarations are stored";
    return std::nullopt;
}

Charge Accounts::charge(guint32 uid, const Usage &usage)
{
    return Charge(account_of(uid), usage);
}

std::optional<std::string> Accounts::add_key_names(guint32 uid,
                                                   const std::vector<std::string_view> &names)
{
    auto is_known = [this](std::string_view name) {
        const KeyName *known = KeyName::find(name);
        return known && key_names_.contains(known);
    };
    std::unordered_set<std::string_view, TextHash> added;
    for (std::string_view name : names)
        if (!is_known(name))
            added.insert(name);
    if (added.empty())
        return std::nullopt;
    Usage more;
    more.key_names = added.size();
    if (auto reason = refusal(uid, more))
        return reason;
    account_of(uid)->own += more;
    all_->own += more;
    for (std::string_view name : added)
        key_names_.insert(KeyName::intern(name));
    return std::nullopt;
}

std::map<guint32, Usage> Accounts::usages() const
{
    std::map<guint32, Usage> usages;
    for (const auto &[uid, account] : accounts_)
        usages.emplace(uid, account->own);
    return usages;
}

} // namespace qandor
