// SPDX-License-Identifier: LGPL-2.1-or-later

// What is wrong with the XML form of a record, for which the library or the system refuses it or
// which they pass over although it can only be a mistake.
#pragma once

#include "cli/xmldocument.hpp"

#include <qandor/qandor.hpp>

#include <optional>
#include <string>
#include <vector>

namespace qandor::cli {

enum class XmlKind { Declaration, Expression, State };

enum class Severity {
    Warning,    // passed over
    Refused,    // can be read, but not be declared or sent
    Unreadable, // the library refuses to read it, or ends the process over it
};

struct Finding {
    XmlPlace place;
    Severity severity;
    std::string what;
};

struct XmlReport {
    std::optional<XmlKind> kind;   // of the root; nothing for another one and for what is no XML
    std::vector<Finding> findings; // in the order of their places

    // Nothing is unreadable.
    bool is_readable() const;
    // Something is worse than a warning.
    bool has_errors() const;
};

XmlReport check_xml(std::string_view text);

// The declaration in the file; nothing, silently, when it is not there or has errors.
std::optional<Declaration> read_declaration_file(const std::string &path);

} // namespace qandor::cli
