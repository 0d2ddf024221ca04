// SPDX-License-Identifier: LGPL-2.1-or-later

// Records from files: as bytes, as bytes in hexadecimal, or in their XML form. Whatever the content
// is, it is checked before the library reads it, and what is wrong is a Failure that shows where.
#pragma once

#include <qandor/qandor.hpp>

#include <string>
#include <variant>
#include <vector>

namespace qandor::cli {

struct Input {
    std::string name; // for people
    std::string path; // "-": the standard input
    std::string bytes;

    bool is_xml() const;
};

// The content of a file, or with "-" of the standard input; a Failure when it cannot be read.
Input read_input(const std::string &path);

using ExpressionRecord = Expression::C;
using Record = std::variant<Event, Declaration, ExpressionRecord, PropertyState, Notification>;

// What the input holds. Parts of records (inspectables, and-lists, buckets, key-values) come in the
// record that they would be in.
Record read_record(const Input &input);

// The declaration in a file; a Failure for anything else.
Declaration read_declaration(const std::string &path);

} // namespace qandor::cli
