// SPDX-License-Identifier: LGPL-2.1-or-later

// The steps of an event's road inside a process, in time. The same steps in instructions, by name
// and count, for callgrind:
//
//   modelbench --operation NAME COUNT

#include "bench/sample.hpp"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace qandor::bench;

namespace {

struct Sample {
    event_declaration *declaration = new_declaration();
    event *prepared = event_declaration_generate_event(declaration);
    event *filled = event_copy(prepared);
    subscribe_expression *expression = new_expression();
    key_value *one;
    GArray *bytes;

    Sample()
    {
        fill(filled);
        bytes = event_serialize(filled);
        one = inspectable_get_key_value(event_get_inspectable(filled), "memory");
    }
};

Sample &sample()
{
    static Sample *made = new Sample();
    return *made;
}

void nothing() {}

void copy_key_value()
{
    key_value_free(key_value_copy(sample().one));
}

void copy_event()
{
    event_free(event_copy(sample().filled));
}

void serialize()
{
    g_array_unref(event_serialize(sample().filled));
}

void deserialize()
{
    event_free(event_deserialize(sample().bytes));
}

void contain()
{
    benchmark::DoNotOptimize(event_contains(sample().filled, sample().expression));
}

// What a producer does for each event.
void send()
{
    event *event = event_copy(sample().prepared);
    fill(event);
    GArray *bytes = event_serialize(event);
    g_array_unref(bytes);
    event_free(event);
}

struct Operation {
    const char *name;
    void (*run)();
} const operations[] = {
    {"nothing", nothing},     {"key_value_copy", copy_key_value}, {"event_copy", copy_event},
    {"serialize", serialize}, {"deserialize", deserialize},       {"containment", contain},
    {"send", send},
};

int run_operation(const char *name, long count)
{
    sample();
    for (const Operation &operation : operations) {
        if (std::strcmp(operation.name, name) != 0)
            continue;
        for (long i = 0; i < count; ++i)
            operation.run();
        return EXIT_SUCCESS;
    }
    std::fprintf(stderr, "modelbench: there is no operation %s\n", name);
    return EXIT_FAILURE;
}

} // namespace

int main(int count, char **arguments)
{
    if (count == 4 && std::strcmp(arguments[1], "--operation") == 0)
        return run_operation(arguments[2], std::atol(arguments[3]));

    std::printf("the event takes %u bytes\n", sample().bytes->len);
    for (const Operation &operation : operations)
        benchmark::RegisterBenchmark(operation.name, [&operation](benchmark::State &state) {
            for (auto step : state)
                operation.run();
        });
    benchmark::Initialize(&count, arguments);
    benchmark::RunSpecifiedBenchmarks();
    return EXIT_SUCCESS;
}
