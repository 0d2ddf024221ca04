// SPDX-License-Identifier: LGPL-2.1-or-later

// What is wrong with single elements of the XML form of a record, its keys above all, and where
// what is found is noted down.
#pragma once

#include "cli/xmlcheck.hpp"

#include <set>

namespace qandor::cli {

class XmlFindings {
public:
    void warn(XmlPlace place, std::string what) { add(place, Severity::Warning, std::move(what)); }
    void refuse(XmlPlace place, std::string what)
    {
        add(place, Severity::Refused, std::move(what));
    }
    void error(XmlPlace place, std::string what)
    {
        add(place, Severity::Unreadable, std::move(what));
    }
    void add(XmlPlace place, Severity severity, std::string what)
    {
        found_.push_back({place, severity, std::move(what)});
    }

    // In the order of their places.
    std::vector<Finding> take();

private:
    std::vector<Finding> found_;
};

std::string quoted(const std::string &text);

void check_attributes(XmlFindings &findings, const XmlElement &element,
                      const std::set<std::string> &known);
void check_tag(XmlFindings &findings, const XmlElement &tag);
void check_key(XmlFindings &findings, const XmlElement &key, XmlKind kind);

} // namespace qandor::cli
