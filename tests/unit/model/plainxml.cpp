// SPDX-License-Identifier: LGPL-2.1-or-later

// The XML form of the plain records.

#include "unit/model/plainrecords.hpp"

#include <map>

namespace qandor::test {
namespace {

const std::map<int, std::string> type_names{{1, "int"}, {2, "bool"}, {3, "double"}};

std::string escaped(const std::string &text)
{
    std::string result;
    for (char character : text) {
        if (character == '&')
            result += "&amp;";
        else if (character == '<')
            result += "&lt;";
        else if (character == '"')
            result += "&quot;";
        else if (character == '\t' || character == '\n' || character == '\r')
            result += "&#" + std::to_string(static_cast<int>(character)) + ";";
        else
            result += character;
    }
    return result;
}

std::string attribute(const std::string &name, const std::string &value)
{
    return value.empty() ? "" : " " + name + "=\"" + escaped(value) + "\"";
}

std::string flag(const std::string &name, int value)
{
    return attribute(name, value == 1 ? "true" : "");
}

std::string tag_elements(const std::vector<std::string> &tags)
{
    std::string text;
    for (const std::string &tag : tags)
        text += "<tag" + attribute("tag", tag) + "/>";
    return text;
}

std::string key_value_element(const PlainKeyValue &record)
{
    auto type = type_names.find(record.value_type);
    return "<keyvalue" + attribute("key", record.key) + attribute("name-space", record.name_space) +
           attribute("complex-type-name", record.complex_type_name) +
           attribute("key-nice-name", record.key_nice_name) +
           flag("key-wildcard", record.key_wildcard) + attribute("value", record.value) +
           attribute("value-nice-name", record.value_nice_name) +
           attribute("value-user-string", record.value_user_string) +
           flag("value-wildcard", record.value_wildcard) + flag("not", record.negated) +
           attribute("value-type", type == type_names.end() ? "" : type->second) + ">" +
           tag_elements(record.tags) + "</keyvalue>";
}

std::string bucket_elements(const PlainBuckets &buckets)
{
    std::string text;
    for (const auto &[name, bucket] : buckets)
        for (const PlainKeyValue &record : bucket)
            text += key_value_element(record);
    return text;
}

std::string value_of(const xmlnode *node, const char *name)
{
    const gchar *value = xmlnode_get_attribute_value(node, name);
    return value ? value : "";
}

std::vector<const xmlnode *> children_of(const xmlnode *node)
{
    std::vector<const xmlnode *> children;
    for (GList *link = node->children; link; link = link->next)
        children.push_back(static_cast<const xmlnode *>(link->data));
    return children;
}

PlainKeyValue key_value_of(const xmlnode *node)
{
    PlainKeyValue record;
    record.key = value_of(node, "key");
    record.name_space = value_of(node, "name-space");
    record.complex_type_name = value_of(node, "complex-type-name");
    record.key_nice_name = value_of(node, "key-nice-name");
    record.key_wildcard = value_of(node, "key-wildcard") == "true";
    record.value = value_of(node, "value");
    record.value_nice_name = value_of(node, "value-nice-name");
    record.value_user_string = value_of(node, "value-user-string");
    record.value_wildcard = value_of(node, "value-wildcard") == "true";
    record.settable = record.value_wildcard;
    record.negated = value_of(node, "not") == "true";
    for (const auto &[type, name] : type_names)
        if (value_of(node, "value-type") == name)
            record.value_type = type;
    for (const xmlnode *child : children_of(node))
        record.tags.push_back(value_of(child, "tag"));
    return record;
}

PlainAndList and_list_of(const xmlnode *expression)
{
    PlainAndList list;
    for (const xmlnode *child : children_of(expression)) {
        if (std::string(child->name) != "keyvalue")
            throw std::runtime_error("not a key-value");
        PlainKeyValue record = key_value_of(child);
        if (record.key_wildcard)
            list.wildcards[record.value].push_back(record);
        else
            list.keyed[record.key].push_back(record);
    }
    return list;
}

} // namespace

std::string to_xml(const PlainInspectable &content, const std::string &root)
{
    std::string text = "<" + root + flag("internal", content.internal) + ">";
    for (const PlainAndList &list : content.and_lists)
        text += "<expression>" + bucket_elements(list.keyed) + bucket_elements(list.wildcards) +
                "</expression>";
    return text + tag_elements(content.tags) + "</" + root + ">";
}

PlainInspectable from_xml(const xmlnode *node, const std::string &root, int type)
{
    if (node->name != root)
        throw std::runtime_error("not the element asked for");
    PlainInspectable content;
    content.type = type;
    content.internal = value_of(node, "internal") == "true";
    content.and_lists.clear();
    for (const xmlnode *child : children_of(node)) {
        if (std::string(child->name) == "tag")
            content.tags.push_back(value_of(child, "tag"));
        else
            content.and_lists.push_back(and_list_of(child));
    }
    return content;
}

} // namespace qandor::test
