// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/xmlcheck.hpp"

#include "cli/keyview.hpp"
#include "cli/owners.hpp"
#include "cli/xmlkeycheck.hpp"

#include <algorithm>
#include <map>

namespace qandor::cli {
namespace {

class Check {
public:
    XmlReport run(std::string_view text)
    {
        auto parsed = parse_xml(text);
        if (const auto *fault = std::get_if<XmlFault>(&parsed))
            findings_.error(fault->place, fault->what);
        else
            check_root(std::get<XmlElement>(parsed));
        report_.findings = findings_.take();
        return std::move(report_);
    }

private:
    void check_root(const XmlElement &root)
    {
        if (root.name == "declare")
            report_.kind = XmlKind::Declaration;
        else if (root.name == "subscribe")
            report_.kind = XmlKind::Expression;
        else if (root.name == "property")
            report_.kind = XmlKind::State;
        else
            return findings_.error(root.place,
                                   "the root is " + quoted(root.name) +
                                       "; expected is 'declare', 'subscribe' or 'property'");
        check_attributes(findings_, root,
                         report_.kind == XmlKind::Declaration ? std::set<std::string>{"internal"}
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
                    findings_.error(child.place,
                                    "a second 'expression' is for subscribe expressions only");
            } else if (child.name == "tag") {
                check_tag(findings_, child);
                if (report_.kind != XmlKind::Declaration)
                    findings_.error(child.place, "a 'tag' directly under " + quoted(root.name) +
                                                     " ends the process that reads it");
            } else {
                findings_.error(child.place,
                                "expected is 'expression' or 'tag', not " + quoted(child.name));
            }
        }
        if (root.children.empty())
            findings_.error(root.place, "there is no 'expression' in it");
        else if (expressions == 0)
            findings_.warn(root.place, "there is no 'expression' in it, and so no key");
    }

    void check_expression(const XmlElement &expression)
    {
        check_attributes(findings_, expression, {});
        for (const XmlElement &child : expression.children) {
            if (child.name != "keyvalue") {
                findings_.error(child.place, "expected is 'keyvalue', not " + quoted(child.name));
                continue;
            }
            check_key(findings_, child, *report_.kind);
            if (report_.kind != XmlKind::Expression)
                take_key(child);
        }
    }

    // Of several of one key a declaration has the last, a state the first.
    void take_key(const XmlElement &key)
    {
        auto [same, is_new] = keys_.try_emplace(key.attribute("key"), &key);
        if (is_new)
            return;
        bool is_declaration = report_.kind == XmlKind::Declaration;
        findings_.warn(key.place, "the key " + quoted(same->first) + " is there already; " +
                                      (is_declaration ? "this one counts" : "that one counts"));
        if (is_declaration)
            same->second = &key;
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
        for (const auto &[name, key] : keys_)
            if (is_state(*key))
                states.push_back(key);
        std::sort(states.begin(), states.end(), [](const XmlElement *one, const XmlElement *other) {
            return one->place < other->place;
        });
        bool is_declaration = report_.kind == XmlKind::Declaration;
        for (std::size_t i = 1; i < states.size(); ++i)
            findings_.add(states[i]->place,
                          is_declaration ? Severity::Refused : Severity::Unreadable,
                          "a second key is tagged 'property-state'");
        if (states.empty() && report_.kind == XmlKind::State)
            findings_.error(root.place, "no key is tagged 'property-state'");
        for (const XmlElement &child : root.children)
            if (child.name == "tag" && child.attribute("tag") == state_tag)
                findings_.warn(child.place, "the tag 'property-state' belongs to a key");
    }

    void check_topic(const XmlElement &root)
    {
        if (root.is_true("internal"))
            return;
        auto topic = keys_.find("topic0");
        if (topic == keys_.end())
            findings_.refuse(root.place,
                             "an external type without the key 'topic0' cannot be declared");
        else if (topic->second->attribute("value").empty() &&
                 !topic->second->is_true("value-wildcard"))
            findings_.warn(topic->second->place,
                           "'topic0' is empty: the type is in no tree of topics");
    }

    XmlReport report_;
    XmlFindings findings_;
    std::map<std::string, const XmlElement *> keys_; // those that count, of what is no expression
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
