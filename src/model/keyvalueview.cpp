// SPDX-License-Identifier: LGPL-2.1-or-later

// Key-values for people and other code: the plain view and the log line.

#include "model/keyvalue.hpp"

#include "platform/check.hpp"
#include "platform/log.hpp"

using namespace qandor;

namespace {

gchar *copy_unless_empty(OptionalText text)
{
    return text.empty() ? nullptr : g_strndup(text.data(), text.size());
}

gchar *copy_unless(gint wildcard, std::string_view text)
{
    return wildcard ? nullptr : g_strndup(text.data(), text.size());
}

void append_key(std::string &line, const key_value &key_value)
{
    if (key_value.key_wildcard) {
        line += "*";
        return;
    }
    OptionalText name_space = key_value.attribute(Attribute::NameSpace);
    if (!name_space.empty())
        line.append(name_space).append(":");
    line.append(key_value.key->view());
}

void append_unless_empty(std::string &line, const char *before, OptionalText text,
                         const char *after)
{
    if (!text.empty())
        line.append(before).append(text).append(after);
}

std::string line_of(const key_value &key_value)
{
    std::string line = "[";
    append_key(line, key_value);
    line += " ";
    append_unless_empty(line, "(", key_value.attribute(Attribute::KeyNiceName), ") ");
    append_unless_empty(line, "{", key_value.attribute(Attribute::ComplexTypeName), "} ");
    line += key_value.negated ? "!= '" : "= '";
    line += key_value.value_wildcard ? std::string("*") : key_value.value;
    line += "'";
    append_unless_empty(line, " (", key_value.attribute(Attribute::ValueNiceName), ")");
    line += "]";
    for (const std::string &tag : tags_of(key_value.tags))
        line.append(" {").append(tag).append("}");
    return line;
}

} // namespace

key_value_raw *key_value_get_raw(const key_value *key_value)
{
    CHECK(key_value != NULL);
    auto *raw = g_slice_new(key_value_raw);
    raw->key = copy_unless(key_value->key_wildcard, key_value->key->view());
    raw->value = copy_unless(key_value->value_wildcard, key_value->value);
    raw->name_space = copy_unless_empty(key_value->attribute(Attribute::NameSpace));
    raw->complex_type_name = copy_unless_empty(key_value->attribute(Attribute::ComplexTypeName));
    raw->negated = key_value->negated;
    raw->tags = tags_to_reversed_glist(tags_of(key_value->tags));
    return raw;
}

void key_value_free_raw(key_value_raw *raw)
{
    if (!raw)
        return;
    g_free(raw->key);
    g_free(raw->value);
    g_free(raw->name_space);
    g_free(raw->complex_type_name);
    g_list_free_full(raw->tags, g_free);
    g_slice_free(key_value_raw, raw);
}

void key_value_print(const key_value *key_value)
{
    CHECK(key_value != NULL);
    log_message("%s", line_of(*key_value).c_str());
}
