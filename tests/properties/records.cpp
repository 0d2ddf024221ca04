// SPDX-License-Identifier: LGPL-2.1-or-later

// A few records live beside one another, each with its plain model. After every step the one that
// it was about answers as its model does, and none of the others has changed by a byte.

#include "properties/pairs.hpp"
#include "properties/sequence.hpp"

namespace qandor::test {
namespace {

class Sequence {
public:
    Sequence(unsigned seed, const Trace &trace) : random_(seed), trace_(trace)
    {
        if (random_.one_in(4)) // more keys than an and-list looks through one by one
            random_.widen(48, 48, 40);
    }

    void run()
    {
        for (unsigned left = 10 + random_.number(30); left > 0; --left)
            step();
        for (const Living &one : living_)
            one.subject->check_forms();
    }

private:
    struct Living {
        SubjectPtr subject;
        PlainBytes bytes;
    };
    static constexpr std::size_t most = 8;

    void step();
    void make();
    void edit(Living &one);
    void copy(const Living &one);
    void read_back(const Living &one);
    void combine(Living &one, Living &other);
    void ask(const Living &one, const Living &other);
    void remove(std::size_t which);
    void welcome(SubjectPtr subject);
    void settle(Living &one);
    void check_others(const Living *changed) const;
    Living &any() { return living_[random_.number(static_cast<unsigned>(living_.size()))]; }

    RandomRecords random_;
    const Trace &trace_;
    std::vector<Living> living_;
};

// What a step has touched.
void Sequence::settle(Living &one)
{
    one.subject->check_reads();
    one.bytes = one.subject->bytes();
}

void Sequence::check_others(const Living *changed) const
{
    for (const Living &one : living_)
        if (&one != changed)
            require(one.subject->bytes() == one.bytes,
                    "a " + one.subject->name() + " has changed with another record");
}

void Sequence::welcome(SubjectPtr subject)
{
    if (!subject)
        return;
    settle(living_.emplace_back(std::move(subject), PlainBytes()));
    check_others(&living_.back());
}

void Sequence::make()
{
    SubjectPtr (*const kinds[])(RandomRecords &) = {
        make_inspectable,  make_key_value,
        make_event,        make_declaration,
        make_expression,   make_state,
        make_notification, [](RandomRecords &) { return make_ids(); },
        make_inspectable,  make_event,
        make_declaration,  make_expression,
    };
    SubjectPtr made = kinds[random_.number(std::size(kinds))](random_);
    trace_.note("make " + made->name());
    welcome(std::move(made));
}

void Sequence::edit(Living &one)
{
    trace_.note("edit " + one.subject->name());
    for (unsigned left = 1 + random_.number(4); left > 0; --left)
        one.subject->edit(random_, trace_);
    settle(one);
    check_others(&one);
}

void Sequence::copy(const Living &one)
{
    trace_.note("copy " + one.subject->name());
    welcome(one.subject->copy());
}

void Sequence::read_back(const Living &one)
{
    trace_.note("write and read " + one.subject->name());
    welcome(one.subject->read_back());
}

void Sequence::combine(Living &one, Living &other)
{
    trace_.note("combine " + one.subject->name() + " with " + other.subject->name());
    if (give_content(*one.subject, *other.subject)) {
        settle(one);
        check_others(&one);
        return;
    }
    SubjectPtr made = notification_from(*one.subject, *other.subject);
    welcome(made ? std::move(made) : event_from(*one.subject, random_));
}

// Whatever the answers are, asking changes nothing.
void Sequence::ask(const Living &one, const Living &other)
{
    trace_.note("match " + one.subject->name() + " with " + other.subject->name());
    check_pair(*one.subject, *other.subject);
    check_pair(*other.subject, *one.subject);
    check_others(nullptr);
}

void Sequence::remove(std::size_t which)
{
    trace_.note("remove " + living_[which].subject->name());
    living_.erase(living_.begin() + static_cast<std::ptrdiff_t>(which));
    check_others(nullptr);
}

void Sequence::step()
{
    unsigned what = random_.number(20);
    if (living_.size() == most)
        return remove(random_.number(most));
    if (living_.size() < 2 || what == 0)
        return make();
    if (what < 10)
        return edit(any());
    Living &one = any(), &other = any();
    if (what < 12)
        return copy(one);
    if (what < 14)
        return read_back(one);
    if (what < 16)
        return combine(one, other);
    if (what < 19)
        return ask(one, other);
    trace_.note("show " + one.subject->name());
    one.subject->check_forms();
    check_others(nullptr);
}

} // namespace

void run_records(unsigned seed, const Trace &trace)
{
    Sequence(seed, trace).run();
}

} // namespace qandor::test
