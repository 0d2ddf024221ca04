// SPDX-License-Identifier: LGPL-2.1-or-later

// The indexes against the plain matcher: they find the same, in the order of addition, and take at
// most twice the steps, whatever comes and goes.

#include "properties/sequence.hpp"

#include "model/declarationindex.hpp"
#include "model/expressionindex.hpp"
#include "model/matching.hpp"
#include "unit/model/plainscan.hpp"
#include "unit/model/randominspectables.hpp"

#include <optional>

namespace qandor::test {
namespace {

struct Filed {
    guint32 id;
    Record record;
};

std::string shown(const std::vector<guint32> &ids)
{
    std::string all;
    for (guint32 id : ids)
        all += std::to_string(id) + " ";
    return "[" + all + "]";
}

// Chance decides how varied the records are.
Variety random_variety(RandomInspectables &random)
{
    auto up_to = [&random](unsigned limit) { return random.number(limit + 1); };
    auto chance = [&] { return random.number(2) ? 0 : up_to(90); };
    Variety variety{.name = ""};
    variety.keys = 1 + up_to(random.number(4) ? 6 : 40);
    variety.values = 1 + up_to(random.number(4) ? 6 : 60);
    variety.conditions = 1 + up_to(random.number(4) ? 6 : 50);
    variety.alternatives = 1 + (random.number(3) ? 0 : up_to(24));
    variety.negated = chance();
    variety.open = chance();
    variety.any_key = chance();
    variety.in_name_space = chance();
    variety.repeated = chance();
    return variety;
}

// What both indexes go through.
class IndexSequence {
public:
    IndexSequence(unsigned seed, const Trace &trace) : random_(seed), trace_(trace) {}
    virtual ~IndexSequence() = default;

    void run()
    {
        for (unsigned left = 40 + random_.number(120); left > 0; --left)
            step();
        while (!filed_.empty())
            remove(filed_.front().id);
        search();
    }

protected:
    virtual Record make() = 0;
    virtual Record make_question() = 0;
    virtual void file(guint32 id, const inspectable &record) = 0;
    virtual void take_out(guint32 id) = 0;
    // Returns its steps, those of looking at the candidates included.
    virtual std::size_t find(const inspectable &question, Matches &matches) = 0;
    virtual std::size_t plain_steps(const inspectable &question) = 0;
    virtual bool is_match(const inspectable &question, const inspectable &record) = 0;
    virtual std::size_t allowance(const inspectable &question) = 0;

    const std::vector<Filed> &filed() const { return filed_; }

    RandomInspectables random_;

private:
    void step();
    void add(guint32 id);
    void remove(guint32 id);
    void search();

    const Trace &trace_;
    std::vector<Filed> filed_; // in the order of addition
};

void IndexSequence::step()
{
    unsigned what = random_.number(10);
    guint32 id = random_.number(60);
    if (what < 6)
        add(id);
    else if (what < 8)
        remove(id);
    else
        search();
}

void IndexSequence::add(guint32 id)
{
    Record made = make();
    trace_.note("add " + std::to_string(id) + " of size " + std::to_string(size_of(*made)));
    file(id, *made); // in the place of one of the same id, which lives until then
    std::erase_if(filed_, [id](const Filed &one) { return one.id == id; });
    filed_.push_back({id, std::move(made)});
}

void IndexSequence::remove(guint32 id)
{
    trace_.note("remove " + std::to_string(id));
    take_out(id);
    std::erase_if(filed_, [id](const Filed &one) { return one.id == id; });
}

void IndexSequence::search()
{
    Record question = make_question();
    trace_.note("search among " + std::to_string(filed_.size()));
    std::vector<guint32> expected, found;
    for (const Filed &one : filed_)
        if (is_match(*question, *one.record))
            expected.push_back(one.id);
    Matches matches;
    std::size_t steps = find(*question, matches);
    for (const Match &match : matches)
        found.push_back(match.id);
    require(found == expected, "found " + shown(found) + ", expected " + shown(expected));
    std::size_t bound = 2 * plain_steps(*question) + allowance(*question);
    require(steps <= bound, std::to_string(steps) + " steps, at most " + std::to_string(bound));
}

// Containers of whatever may come off the wire.
Record random_container(RandomInspectables &random, Variety variety)
{
    static const guint32 types[] = {IT_EVENT, IT_EVENT_DECLARATION, IT_SUBSCRIBE_EXPRESSION};
    guint32 type = types[random.number(8) ? random.number(2) : 2];
    if (type == IT_EVENT && random.number(2))
        variety.negated = variety.open = variety.repeated = 0;
    if (type != IT_SUBSCRIBE_EXPRESSION) {
        variety.any_key = 0;
        variety.alternatives = 1;
    }
    variety.any_key /= 8;
    variety.conditions = 2 * variety.keys;
    return random.make(type, variety);
}

class ExpressionSequence : public IndexSequence {
public:
    ExpressionSequence(unsigned seed, const Trace &trace)
        : IndexSequence(seed, trace), variety_(random_variety(random_)),
          index_(seed % 2 ? ExpressionIndex::Containers::Events
                          : ExpressionIndex::Containers::Declarations)
    {
        if (random_.number(3) == 0)
            shape_ = &expression_shapes()[random_.number(
                static_cast<unsigned>(expression_shapes().size()))];
        few_of_shape_ = random_.number(2) != 0;
    }

private:
    bool is_of_shape() { return shape_ && random_.number(few_of_shape_ ? 4 : 20) != 0; }
    Record make() override
    {
        if (is_of_shape())
            return shape_->make(random_.number(shape_->count));
        return random_.make(IT_SUBSCRIBE_EXPRESSION, variety_);
    }
    Record make_question() override
    {
        return is_of_shape() ? shape_->make_container() : random_container(random_, variety_);
    }
    void file(guint32 id, const inspectable &record) override { index_.add(id, record); }
    void take_out(guint32 id) override { index_.remove(id); }
    std::size_t find(const inspectable &question, Matches &matches) override
    {
        PlainScan scan(question);
        std::size_t steps = 0;
        index_.find_candidates(question, matches);
        for (const Match &match : matches)
            steps += match.is_proven ? 0 : scan.steps(*match.record);
        return steps + index_.find(question, matches);
    }
    // Every and-list of a container is searched for anew. Events and declarations have one.
    std::size_t plain_steps(const inspectable &question) override
    {
        std::size_t steps = 0;
        for (const AndList &present : question.and_lists) {
            Record alone = record(IT_SUBSCRIBE_EXPRESSION);
            *alone->current() = AndList(present);
            steps += plain_steps_of_one(*alone);
        }
        return steps;
    }
    std::size_t plain_steps_of_one(const inspectable &question)
    {
        PlainScan scan(question);
        Containment containment(question);
        std::size_t steps = 0;
        for (const Filed &one : filed()) {
            steps += scan.steps_through_all(*one.record);
            containment.satisfies(*one.record);
        }
        return steps + containment.comparisons();
    }
    bool is_match(const inspectable &question, const inspectable &record) override
    {
        return inspectable_contains(&question, &record);
    }
    // The event itself has to be looked at, and a matcher compares so many values before it makes a
    // table of them: which of two then makes one is luck.
    std::size_t allowance(const inspectable &question) override
    {
        constexpr std::size_t few = 8, before_a_table = 512;
        std::size_t size = size_of(question);
        return size + (size > few ? before_a_table : 0);
    }

    const Variety variety_;
    const ExpressionShape *shape_ = nullptr;
    bool few_of_shape_ = false;
    ExpressionIndex index_;
};

class DeclarationSequence : public IndexSequence {
public:
    DeclarationSequence(unsigned seed, const Trace &trace)
        : IndexSequence(seed, trace), variety_(random_variety(random_))
    {
        if (random_.number(3) == 0)
            shape_ = &declaration_shapes()[random_.number(
                static_cast<unsigned>(declaration_shapes().size()))];
    }

private:
    bool is_of_shape() { return shape_ && random_.number(8) != 0; }
    Record make() override
    {
        if (is_of_shape())
            return shape_->make(random_.number(shape_->count));
        return random_container(random_, variety_);
    }
    Record make_question() override
    {
        return is_of_shape() ? shape_->make_expression()
                             : random_.make(IT_SUBSCRIBE_EXPRESSION, variety_);
    }
    void file(guint32 id, const inspectable &record) override { index_.add(id, record); }
    void take_out(guint32 id) override { index_.remove(id); }
    std::size_t find(const inspectable &question, Matches &matches) override
    {
        std::size_t steps = index_.find_candidates(question, matches);
        for (const Match &match : matches)
            steps += PlainScan(*match.record).steps(question);
        index_.find(question, matches);
        return steps;
    }
    std::size_t plain_steps(const inspectable &question) override
    {
        std::size_t steps = 0;
        for (const Filed &one : filed())
            steps += PlainScan(*one.record).steps(question);
        return steps;
    }
    bool is_match(const inspectable &question, const inspectable &record) override
    {
        return inspectable_contains(&record, &question);
    }
    // The expression itself has to be looked at.
    std::size_t allowance(const inspectable &question) override { return size_of(question); }

    const Variety variety_;
    const DeclarationShape *shape_ = nullptr;
    DeclarationIndex index_;
};

} // namespace

void run_expression_index(unsigned seed, const Trace &trace)
{
    ExpressionSequence(seed, trace).run();
}

void run_declaration_index(unsigned seed, const Trace &trace)
{
    DeclarationSequence(seed, trace).run();
}

} // namespace qandor::test
