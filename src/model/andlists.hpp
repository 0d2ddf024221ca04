// SPDX-License-Identifier: LGPL-2.1-or-later

// The alternatives of an inspectable. All but a few expressions have one, so the first stands in
// the inspectable itself.
#pragma once

#include "model/andlist.hpp"

#include <optional>
#include <vector>

namespace qandor {

class AndLists {
public:
    class Iterator {
    public:
        Iterator(const AndLists &lists, const AndList *at) : lists_(lists), at_(at) {}
        const AndList &operator*() const { return *at_; }
        Iterator &operator++()
        {
            at_ = at_ == &*lists_.first_ ? lists_.more_.data() : at_ + 1;
            return *this;
        }
        bool operator!=(const Iterator &other) const { return at_ != other.at_; }

    private:
        const AndLists &lists_;
        const AndList *at_;
    };

    std::size_t size() const { return first_ ? 1 + more_.size() : 0; }
    Iterator begin() const { return {*this, first_ ? &*first_ : more_.data()}; }
    Iterator end() const { return {*this, more_.data() + more_.size()}; }

    // The one begun last, or NULL when there is none.
    AndList *last()
    {
        if (!more_.empty())
            return &more_.back();
        return first_ ? &*first_ : nullptr;
    }
    const AndList *last() const { return const_cast<AndLists *>(this)->last(); }

    // Begins another one.
    AndList &add() { return first_ ? more_.emplace_back() : first_.emplace(); }

    void clear()
    {
        first_.reset();
        more_.clear();
    }

private:
    friend class Footprint;

    std::optional<AndList> first_;
    std::vector<AndList> more_;
};

} // namespace qandor
