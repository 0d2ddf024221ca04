// SPDX-License-Identifier: LGPL-2.1-or-later

// The properties that are looked at, each with one random sequence for a seed. They throw a
// Difference.
#pragma once

#include "properties/trace.hpp"

namespace qandor::test {

struct Property {
    const char *name;
    void (*run)(unsigned seed, const Trace &trace);
};

// Records of every kind are edited, copied, written, read, matched, compared, printed and removed.
void run_records(unsigned seed, const Trace &trace);
// Expressions, or declarations, come and go in an index, which is searched.
void run_expression_index(unsigned seed, const Trace &trace);
void run_declaration_index(unsigned seed, const Trace &trace);

constexpr Property properties[] = {
    {"records", run_records},
    {"expression-index", run_expression_index},
    {"declaration-index", run_declaration_index},
};

} // namespace qandor::test
