// SPDX-License-Identifier: LGPL-2.1-or-later

// What it costs to find the few among many: events and declarations against subscriptions, and the
// other way round. Prints a table, of all cases or one; or runs one, for callgrind:
//
//   indexbench [CASE]
//   indexbench --operation CASE SIZE COUNT

#include "bench/indexsample.hpp"
#include "bench/indexworst.hpp"
#include "model/declarationindex.hpp"

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <unistd.h>
#include <vector>

using namespace qandor;
using namespace qandor::bench;

namespace {

constexpr unsigned sizes[] = {10, 1000, 100000};

// Of this thread alone: the machine has other things to do.
double microseconds()
{
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

double microseconds_of(auto step, unsigned count)
{
    double begin = microseconds();
    for (unsigned i = 0; i < count; ++i)
        step(i);
    return (microseconds() - begin) / count;
}

// Of many short rounds the one that a quarter of them beat.
double usual(auto step, unsigned rounds, unsigned count)
{
    std::vector<double> taken;
    for (unsigned round = 0; round < rounds; ++round)
        taken.push_back(microseconds_of([&](unsigned i) { step(round * count + i); }, count));
    std::sort(taken.begin(), taken.end());
    return taken[taken.size() / 4];
}

void row(const char *what, unsigned size, double figure, const char *unit, double matches = -1)
{
    std::printf("%-44s%9u%12.2f %s", what, size, figure, unit);
    if (matches >= 0)
        std::printf("%8.1f match", matches);
    std::printf("\n");
    std::fflush(stdout);
}

// A set of expressions in an index, and the event that is asked about.
struct Subject {
    Subject(const Set &set, unsigned size)
        : index(set.of_declarations ? ExpressionIndex::Containers::Declarations
                                    : ExpressionIndex::Containers::Events)
    {
        for (unsigned i = 0; i < size; ++i)
            expressions.emplace_back(set.make(i, size));
        for (unsigned i = 0; i < size; ++i)
            index.add(i, *expressions[i]);
    }

    std::vector<InspectableOwner> expressions;
    ExpressionIndex index;
    Matches matches;
};

void bench_same(const Set &set, Subject &subject, unsigned size)
{
    InspectableOwner container(set.make_container());
    set.vary(container.get(), 0, size);
    auto step = [&](unsigned) { subject.index.find(*container, subject.matches); };
    double best = usual(step, 40, 200);
    char name[64];
    std::snprintf(name, sizeof name, "%s, the same again", set.name);
    row(name, size, best, "us", static_cast<double>(subject.matches.size()));
}

void bench_different(const Set &set, Subject &subject, unsigned size)
{
    InspectableOwner container(set.make_container());
    std::size_t found = 0;
    const unsigned rounds = 100, count = 200;
    auto vary = [&](unsigned i) { set.vary(container.get(), i * 7919, size); };
    auto step = [&](unsigned i) {
        vary(i);
        subject.index.find(*container, subject.matches);
        found += subject.matches.size();
    };
    double filling = usual(vary, rounds, count);
    double best = usual(step, rounds, count) - filling;
    char name[64];
    std::snprintf(name, sizeof name, "%s, each another", set.name);
    row(name, size, best, "us", static_cast<double>(found) / (rounds * count));
}

void bench_scan(const Set &set, Subject &subject, unsigned size)
{
    InspectableOwner container(set.make_container());
    set.vary(container.get(), 0, size);
    auto step = [&](unsigned) {
        subject.matches.clear();
        for (const auto &expression : subject.expressions)
            if (inspectable_contains(container.get(), expression.get()))
                subject.matches.push_back({0, expression.get(), 0, true});
    };
    char name[64];
    std::snprintf(name, sizeof name, "%s, looking at each", set.name);
    row(name, size, usual(step, 4, 1), "us", static_cast<double>(subject.matches.size()));
}

std::size_t bytes_in_use()
{
    return mallinfo2().uordblks;
}

// Adding in the order of a random walk and removing in another, and what it takes of memory.
void bench_changes(const Set &set, unsigned size)
{
    std::vector<InspectableOwner> expressions;
    for (unsigned i = 0; i < size; ++i)
        expressions.emplace_back(set.make(i, size));
    auto at = [size](unsigned i) { return static_cast<unsigned>(i * 7919ULL % size); };
    std::size_t before = bytes_in_use();
    ExpressionIndex index(ExpressionIndex::Containers::Events);
    double longest = 0;
    double adding = microseconds_of(
        [&](unsigned i) {
            double its =
                microseconds_of([&](unsigned) { index.add(at(i), *expressions[at(i)]); }, 1);
            longest = std::max(longest, its);
        },
        size);
    double bytes = static_cast<double>(bytes_in_use() - before) / size;
    double removing = microseconds_of([&](unsigned i) { index.remove(at(i * 31)); }, size);
    char name[64];
    const struct {
        const char *what;
        double figure;
        const char *unit;
    } rows[] = {{"adding", adding, "us"},
                {"the longest adding", longest, "us"},
                {"removing", removing, "us"},
                {"memory of one", bytes, "bytes"}};
    for (const auto &one : rows) {
        std::snprintf(name, sizeof name, "%s, %s", set.name, one.what);
        row(name, size, one.figure, one.unit);
    }
}

void bench_declarations(unsigned size)
{
    std::vector<InspectableOwner> declarations;
    DeclarationIndex index;
    std::size_t before = bytes_in_use();
    for (unsigned i = 0; i < size; ++i)
        declarations.emplace_back(new_declaration(i / 10));
    std::size_t between = bytes_in_use();
    double adding = microseconds_of([&](unsigned i) { index.add(i, *declarations[i]); }, size);
    std::size_t after = bytes_in_use();
    std::vector<InspectableOwner> expressions;
    for (unsigned i = 0; i < size; i += 10)
        expressions.emplace_back(new_topic_expression(i / 10, i));
    Matches matches;
    double best = usual(
        [&](unsigned i) { index.find(*expressions[i * 7919ULL % expressions.size()], matches); },
        40, 200);
    row("an expression among declarations", size, best, "us", static_cast<double>(matches.size()));
    row("a declaration, adding", size, adding, "us");
    row("a declaration, memory of one in the index", size,
        static_cast<double>(after - between) / size, "bytes");
    row("a declaration, memory of it itself", size, static_cast<double>(between - before) / size,
        "bytes");
    double removing = microseconds_of([&](unsigned i) { index.remove(i); }, size);
    row("a declaration, removing", size, removing, "us");
}

void bench_worst(const WorstSet &set)
{
    std::vector<InspectableOwner> expressions;
    for (unsigned i = 0; i < set.size; ++i)
        expressions.emplace_back(set.make(i, set.size));
    InspectableOwner container = set.make_container();
    ExpressionIndex index(ExpressionIndex::Containers::Declarations);
    double longest = 0;
    double adding = microseconds_of(
        [&](unsigned i) {
            auto add = [&](unsigned) { index.add(i, *expressions[i]); };
            longest = std::max(longest, microseconds_of(add, 1));
        },
        set.size);
    Matches matches;
    double finding = usual([&](unsigned) { index.find(*container, matches); }, 8, 1);
    double looking = usual(
        [&](unsigned) {
            matches.clear();
            for (const auto &expression : expressions)
                if (inspectable_contains(container.get(), expression.get()))
                    matches.push_back({0, expression.get(), 0, true});
        },
        8, 1);
    char name[64];
    auto print = [&](const char *what, double figure) {
        std::snprintf(name, sizeof name, "%s: %s", set.name, what);
        row(name, set.size, figure, "us");
    };
    print("find", finding);
    print("look at each", looking);
    print("add", adding);
    print("longest add", longest);
}

void bench_worst_alternatives()
{
    constexpr unsigned size = 4000;
    InspectableOwner declaration = container_of({{"topic0", "T"}, {"a", nullptr}});
    DeclarationIndex index;
    for (unsigned i = 0; i < size; ++i)
        index.add(i, *declaration);
    for (unsigned alternatives : {1U, 100U, 7500U}) {
        InspectableOwner expression = many_alternatives(alternatives);
        Matches matches;
        double best = usual([&](unsigned) { index.find(*expression, matches); }, 4, 1);
        row(("alternatives among declarations: " + std::to_string(alternatives)).c_str(), size,
            best, "us", static_cast<double>(matches.size()));
    }
}

void bench_worst_pairs()
{
    constexpr unsigned size = 8000;
    InspectableOwner container = many_values(size, "v", false);
    for (bool any_key : {false, true}) {
        InspectableOwner expression = many_values(size, any_key ? "v" : "w", any_key);
        double best =
            usual([&](unsigned) { inspectable_contains(container.get(), expression.get()); }, 4, 1);
        row(any_key ? "key wildcards against as many values" : "conditions against as many values",
            size, best, "us");
    }
}

void bench_all(const char *only)
{
    for (const Set &set : sets) {
        if (only && std::strcmp(only, set.name) != 0)
            continue;
        for (unsigned size : sizes) {
            Subject subject(set, size);
            bench_same(set, subject, size);
            bench_different(set, subject, size);
            bench_scan(set, subject, size);
        }
        bench_changes(set, sizes[2]);
    }
    if (!only || std::strcmp(only, "worst") == 0) {
        for (const WorstSet &set : worst_sets)
            bench_worst(set);
        bench_worst_alternatives();
        bench_worst_pairs();
    }
    if (!only || std::strcmp(only, "reverse") == 0)
        for (unsigned size : {10U, 1000U, 10000U})
            bench_declarations(size);
}

int run_operation(const char *name, unsigned size, unsigned count)
{
    for (const Set &set : sets) {
        if (std::strcmp(set.name, name) != 0)
            continue;
        Subject subject(set, size);
        InspectableOwner container(set.make_container());
        set.vary(container.get(), 0, size);
        for (unsigned i = 0; i < count; ++i)
            subject.index.find(*container, subject.matches);
        return EXIT_SUCCESS;
    }
    std::fprintf(stderr, "indexbench: there is no case %s\n", name);
    return EXIT_FAILURE;
}

} // namespace

int main(int count, char **arguments)
{
    if (count == 5 && std::strcmp(arguments[1], "--operation") == 0)
        return run_operation(arguments[2], static_cast<unsigned>(std::atol(arguments[3])),
                             static_cast<unsigned>(std::atol(arguments[4])));
    // Memory can be counted when nobody keeps it back. That is settled before main() is.
    if (!getenv("G_SLICE")) {
        setenv("G_SLICE", "always-malloc", 1);
        execv("/proc/self/exe", arguments);
    }
    bench_all(count == 2 ? arguments[1] : nullptr);
    return EXIT_SUCCESS;
}
