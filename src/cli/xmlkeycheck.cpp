// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/xmlkeycheck.hpp"

#include "cli/owners.hpp"
#include "cli/terminal.hpp"

#include <algorithm>
#include <cmath>

namespace qandor::cli {
namespace {

constexpr std::size_t longest_text = 65535;

const std::set<std::string> key_attributes{
    "key",       "name-space",      "complex-type-name", "key-nice-name",  "key-wildcard",
    "value",     "value-nice-name", "value-user-string", "value-wildcard", "not",
    "value-type"};
const std::set<std::string> boolean_attributes{"internal", "key-wildcard", "value-wildcard", "not"};
const std::set<std::string> value_types{"int",    "integer", "bool",  "boolean",
                                        "double", "float",   "string"};

std::string lower(const std::string &text)
{
    return Text(g_ascii_strdown(text.c_str(), -1)).get();
}

bool is_number(const std::string &text)
{
    char *end = nullptr;
    double number = g_ascii_strtod(text.c_str(), &end);
    return !text.empty() && !g_ascii_isspace(text[0]) && *end == '\0' && std::isfinite(number);
}

// What a value of the type should be; NULL when the value is.
const char *wanted_by(const std::string &type, const std::string &value)
{
    if (type.starts_with("int") && !detail::value_of<gint32>(value))
        return "a whole number of 32 bits";
    if (type.starts_with("bool") && value != "0" && value != "1")
        return "1 or 0";
    if ((type == "double" || type == "float") && !is_number(value))
        return "a number with a point";
    return nullptr;
}

void check_misplaced(XmlFindings &findings, const XmlElement &key, bool any_key)
{
    if (any_key)
        findings.error(key.place, "'key-wildcard' is for subscribe expressions only");
    else
        findings.warn(key.place, "'not' is for subscribe expressions only");
}

void check_value(XmlFindings &findings, const XmlElement &key, bool open)
{
    std::string type = lower(key.attribute("value-type"));
    if (key.has("value-type") && value_types.count(type) == 0)
        findings.warn(key.place, quoted(type) + " is no value type and reads as 'string'");
    if (open && key.has("value"))
        findings.warn(key.place, "the value counts for nothing beside 'value-wildcard'");
    if (!open && !key.has("value"))
        findings.warn(key.place,
                      "the key has neither a 'value' nor value-wildcard=\"true\": its value "
                      "is the empty text");
    const char *wanted = wanted_by(type, key.attribute("value"));
    if (!open && key.has("value") && wanted)
        findings.warn(key.place, quoted(key.attribute("value")) + " is not " + wanted + ", as '" +
                                     type + "' has it");
}

} // namespace

std::vector<Finding> XmlFindings::take()
{
    std::stable_sort(found_.begin(), found_.end(), [](const Finding &one, const Finding &other) {
        return one.place < other.place;
    });
    return std::move(found_);
}

std::string quoted(const std::string &text)
{
    return "'" + printable(text) + "'";
}

void check_attributes(XmlFindings &findings, const XmlElement &element,
                      const std::set<std::string> &known)
{
    if (element.has_text)
        findings.warn(element.place, "the text in " + quoted(element.name) + " is passed over");
    for (const auto &[name, value] : element.attributes) {
        if (value.size() > longest_text)
            findings.refuse(element.place, "the attribute " + quoted(name) +
                                               " is longer than the 65535 bytes that can be sent");
        if (known.count(name) == 0) {
            findings.warn(element.place, "the attribute " + quoted(name) + " is passed over");
            continue;
        }
        std::string truth = lower(value);
        if (boolean_attributes.count(name) > 0 && truth != "true" && truth != "false")
            findings.warn(element.place, name + "=" + quoted(value) +
                                             " is neither 'true' nor 'false', and so false");
    }
}

void check_tag(XmlFindings &findings, const XmlElement &tag)
{
    check_attributes(findings, tag, {"tag"});
    if (tag.attribute("tag").empty())
        findings.warn(tag.place, "the tag has no name");
    for (const XmlElement &child : tag.children)
        findings.warn(child.place, quoted(child.name) + " under a 'tag' is passed over");
}

void check_key(XmlFindings &findings, const XmlElement &key, XmlKind kind)
{
    check_attributes(findings, key, key_attributes);
    for (const XmlElement &child : key.children) {
        if (child.name == "tag")
            check_tag(findings, child);
        else
            findings.warn(child.place, quoted(child.name) + " under a 'keyvalue' is passed over");
    }
    bool any_key = key.is_true("key-wildcard"), open = key.is_true("value-wildcard");
    if (any_key && open)
        findings.error(key.place, "both wildcards at once are no condition");
    if (key.attribute("key").empty() && !any_key)
        findings.warn(key.place, "the key has no name");
    if (kind != XmlKind::Expression && (any_key || key.is_true("not")))
        check_misplaced(findings, key, any_key);
    check_value(findings, key, open);
}

} // namespace qandor::cli
