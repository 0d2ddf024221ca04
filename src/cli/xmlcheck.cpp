// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/xmlcheck.hpp"

#include "cli/owners.hpp"
#include "cli/terminal.hpp"

#include <algorithm>
#include <cmath>
#include <set>

namespace qandor::cli {
namespace {

constexpr const char *state_tag = "property-state";
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

std::string quoted(const std::string &text)
{
    return "'" + printable(text) + "'";
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

class Check {
public:
    XmlReport run(std::string_view text)
    {
        auto parsed = parse_xml(text);
        if (const auto *fault = std::get_if<XmlFault>(&parsed))
            error(fault->place, fault->what);
        else
            check_root(std::get<XmlElement>(parsed));
        std::stable_sort(report_.findings.begin(), report_.findings.end(),
                         [](const Finding &one, const Finding &other) {
                             return std::pair(one.place.line, one.place.column) <
                                    std::pair(other.place.line, other.place.column);
                         });
        return std::move(report_);
    }

private:
    void find(XmlPlace place, Severity severity, std::string what)
    {
        report_.findings.push_back({place, severity, std::move(what)});
    }
    void warn(XmlPlace place, std::string what) { find(place, Severity::Warning, std::move(what)); }
    void refuse(XmlPlace place, std::string what)
    {
        find(place, Severity::Refused, std::move(what));
    }
    void error(XmlPlace place, std::string what)
    {
        find(place, Severity::Unreadable, std::move(what));
    }

    void check_root(const XmlElement &root)
    {
        if (root.name == "declare")
            report_.kind = XmlKind::Declaration;
        else if (root.name == "subscribe")
            report_.kind = XmlKind::Expression;
        else if (root.name == "property")
            report_.kind = XmlKind::State;
        else
            return error(root.place, "the root is " + quoted(root.name) +
                                         "; expected is 'declare', 'subscribe' or 'property'");
        check_attributes(root, report_.kind == XmlKind::Declaration
                                   ? std::set<std::string>{"internal"}
                                   : std::set<std::string>{});
        check_children(root);
        if (report_.kind != XmlKind::Expression)
            check_state_keys(root);
        if (report_.kind == XmlKind::Declaration)
            check_topic(root);
    }

    void check_children(const XmlElement &root)
    {
        std::size_t expressions = 0;
        for (const XmlElement &child : root.children) {
            if (child.name == "expression") {
                check_expression(child);
                if (++expressions > 1 && report_.kind != XmlKind::Expression)
                    error(child.place, "a second 'expression' is for subscribe expressions only");
            } else if (child.name == "tag") {
                check_tag(child);
                if (report_.kind != XmlKind::Declaration)
                    error(child.place, "a 'tag' directly under " + quoted(root.name) +
                                           " ends the process that reads it");
            } else {
                error(child.place, "expected is 'expression' or 'tag', not " + quoted(child.name));
            }
        }
        if (root.children.empty())
            error(root.place, "there is no 'expression' in it");
        else if (expressions == 0)
            warn(root.place, "there is no 'expression' in it, and so no key");
    }

    void check_expression(const XmlElement &expression)
    {
        check_attributes(expression, {});
        std::set<std::string> seen;
        for (const XmlElement &child : expression.children) {
            if (child.name != "keyvalue") {
                error(child.place, "expected is 'keyvalue', not " + quoted(child.name));
                continue;
            }
            check_key(child);
            keys_.push_back(&child);
            std::string key = child.attribute("key");
            if (report_.kind != XmlKind::Expression && !seen.insert(key).second) {
                bool is_state = report_.kind == XmlKind::State;
                std::string what = "the key " + quoted(key) + " is there already";
                warn(child.place, is_state ? what : what + "; this one counts");
            }
        }
    }

    void check_key(const XmlElement &key)
    {
        check_attributes(key, key_attributes);
        for (const XmlElement &child : key.children) {
            if (child.name == "tag")
                check_tag(child);
            else
                warn(child.place, quoted(child.name) + " under a 'keyvalue' is passed over");
        }
        bool any_key = key.is_true("key-wildcard"), open = key.is_true("value-wildcard");
        if (any_key && open)
            error(key.place, "both wildcards at once are no condition");
        if (key.attribute("key").empty() && !any_key)
            warn(key.place, "the key has no name");
        if (report_.kind != XmlKind::Expression && (any_key || key.is_true("not")))
            check_misplaced(key, any_key);
        check_value(key, open);
    }

    void check_misplaced(const XmlElement &key, bool any_key)
    {
        if (any_key)
            error(key.place, "'key-wildcard' is for subscribe expressions only");
        else
            warn(key.place, "'not' is for subscribe expressions only");
    }

    void check_value(const XmlElement &key, bool open)
    {
        std::string type = lower(key.attribute("value-type"));
        if (key.has("value-type") && value_types.count(type) == 0)
            warn(key.place, quoted(type) + " is no value type and reads as 'string'");
        if (open && key.has("value"))
            warn(key.place, "the value counts for nothing beside 'value-wildcard'");
        if (!open && !key.has("value"))
            warn(key.place, "the key has neither a 'value' nor value-wildcard=\"true\": its value "
                            "is the empty text");
        const char *wanted = wanted_by(type, key.attribute("value"));
        if (!open && key.has("value") && wanted)
            warn(key.place, quoted(key.attribute("value")) + " is not " + wanted + ", as '" + type +
                                "' has it");
    }

    void check_tag(const XmlElement &tag)
    {
        check_attributes(tag, {"tag"});
        if (tag.attribute("tag").empty())
            warn(tag.place, "the tag has no name");
        for (const XmlElement &child : tag.children)
            warn(child.place, quoted(child.name) + " under a 'tag' is passed over");
    }

    void check_attributes(const XmlElement &element, const std::set<std::string> &known)
    {
        if (element.has_text)
            warn(element.place, "the text in " + quoted(element.name) + " is passed over");
        for (const auto &[name, value] : element.attributes) {
            if (value.size() > longest_text)
                refuse(element.place, "the attribute " + quoted(name) +
                                          " is longer than the 65535 bytes that can be sent");
            if (known.count(name) == 0) {
                warn(element.place, "the attribute " + quoted(name) + " is passed over");
                continue;
            }
            std::string truth = lower(value);
            if (boolean_attributes.count(name) > 0 && truth != "true" && truth != "false")
                warn(element.place,
                     name + "=" + quoted(value) + " is neither 'true' nor 'false', and so false");
        }
    }

    static bool is_state(const XmlElement &key)
    {
        return std::any_of(key.children.begin(), key.children.end(), [](const XmlElement &child) {
            return child.name == "tag" && child.attribute("tag") == state_tag;
        });
    }

    void check_state_keys(const XmlElement &root)
    {
        std::vector<const XmlElement *> states;
        std::copy_if(keys_.begin(), keys_.end(), std::back_inserter(states),
                     [](const XmlElement *key) { return is_state(*key); });
        bool is_declaration = report_.kind == XmlKind::Declaration;
        for (std::size_t i = 1; i < states.size(); ++i)
            find(states[i]->place, is_declaration ? Severity::Refused : Severity::Unreadable,
                 "a second key is tagged 'property-state'");
        if (states.empty() && report_.kind == XmlKind::State)
            error(root.place, "no key is tagged 'property-state'");
        for (const XmlElement &child : root.children)
            if (child.name == "tag" && child.attribute("tag") == state_tag)
                warn(child.place, "the tag 'property-state' belongs to a key");
    }

    void check_topic(const XmlElement &root)
    {
        if (root.is_true("internal"))
            return;
        auto topic = std::find_if(keys_.begin(), keys_.end(), [](const XmlElement *key) {
            return key->attribute("key") == "topic0";
        });
        if (topic == keys_.end())
            refuse(root.place, "an external type without the key 'topic0' cannot be declared");
        else if ((*topic)->attribute("value").empty() && !(*topic)->is_true("value-wildcard"))
            warn((*topic)->place, "'topic0' is empty: the type is in no tree of topics");
    }

    XmlReport report_;
    std::vector<const XmlElement *> keys_;
};

} // namespace

bool XmlReport::is_readable() const
{
    return kind && std::all_of(findings.begin(), findings.end(), [](const Finding &finding) {
               return finding.severity != Severity::Unreadable;
           });
}

bool XmlReport::has_errors() const
{
    return std::any_of(findings.begin(), findings.end(), [](const Finding &finding) {
        return finding.severity != Severity::Warning;
    });
}

XmlReport check_xml(std::string_view text)
{
    return Check().run(text);
}

std::optional<Declaration> read_declaration_file(const std::string &path)
{
    gchar *content = nullptr;
    gsize size = 0;
    if (!g_file_get_contents(path.c_str(), &content, &size, nullptr))
        return std::nullopt;
    Text owner(content);
    XmlReport report = check_xml({content, size});
    if (report.kind != XmlKind::Declaration || !report.is_readable())
        return std::nullopt;
    ::event_declaration *read = event_declaration_deserialize_xml_file(path.c_str());
    return read ? std::optional(Declaration(read)) : std::nullopt;
}

} // namespace qandor::cli
