// SPDX-License-Identifier: LGPL-2.1-or-later

// Shapes of records that would cost an index most: what somebody would send who wants a search to
// take long.
#pragma once

#include "model/inspectable.hpp"

#include <functional>
#include <memory>
#include <span>
#include <string>

namespace qandor::test {

using Record = std::unique_ptr<inspectable>;

Record record(guint32 type);
void add(inspectable &record, const std::string &key, const char *value, bool negated = false);
void add(inspectable &record, const std::string &key, const std::string &value,
         bool negated = false);
void add_for_any_key(inspectable &record, const std::string &value, bool negated = false);
// A declaration of these values; one that is NULL is open.
Record event_of(std::initializer_list<std::pair<const char *, const char *>> values);

// Expressions that all look alike, and what is searched with.
struct ExpressionShape {
    const char *name;
    std::function<Record(unsigned number)> make;
    std::function<Record()> make_container;
    unsigned count = 300;
};
std::span<const ExpressionShape> expression_shapes();

// Declarations that all look alike, and what is searched with.
struct DeclarationShape {
    const char *name;
    std::function<Record(unsigned number)> make;
    std::function<Record()> make_expression;
    unsigned count = 300;
};
std::span<const DeclarationShape> declaration_shapes();

} // namespace qandor::test
