// SPDX-License-Identifier: LGPL-2.1-or-later

// An XML text as a tree of elements that know where they stand, so that what is wrong with one can
// be pointed at. Takes what the library's reader takes and nothing more.
#pragma once

#include <compare>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace qandor::cli {

struct XmlPlace {
    std::size_t line = 1;
    std::size_t column = 1;

    auto operator<=>(const XmlPlace &) const = default;
};

struct XmlElement {
    std::string name;
    XmlPlace place;
    std::map<std::string, std::string> attributes;
    std::vector<XmlElement> children;
    bool has_text = false; // besides blanks

    // The value of the attribute, or "".
    std::string attribute(const std::string &name) const;
    bool has(const std::string &name) const { return attributes.count(name) > 0; }
    // As the library reads it: "true" in any case of letters.
    bool is_true(const std::string &name) const;
};

// Why a text is no document.
struct XmlFault {
    XmlPlace place;
    std::string what;
};

std::variant<XmlElement, XmlFault> parse_xml(std::string_view text);

} // namespace qandor::cli
