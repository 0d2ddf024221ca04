// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/shortdescription.hpp"

namespace qandor {
namespace {

constexpr std::size_t longest = 200;

bool is_topic(const key_value &key_value)
{
    return key_value.key && key_value.key->view().starts_with("topic");
}

std::string name_of(const key_value &key_value)
{
    return key_value.key_wildcard || !key_value.key ? "*" : std::string(key_value.key->view());
}

// A control character would break the line.
std::string printable(std::string_view text)
{
    std::string printed(text);
    for (char &character : printed)
        if (g_ascii_iscntrl(character))
            character = '?';
    return printed;
}

std::string text_of(const key_value &key_value)
{
    std::string name = name_of(key_value);
    if (key_value.value_wildcard)
        return (key_value.negated ? "!" : "") + printable(name);
    return printable(name + (key_value.negated ? "!=" : "=") + std::string(key_value.value));
}

// The bytes of a character in UTF-8 behind its first.
bool is_inside_character(char byte)
{
    return (static_cast<guchar>(byte) & 0xc0) == 0x80;
}

void append_keys(std::string &text, const Buckets &buckets, bool topics)
{
    for (Bucket bucket : buckets)
        for (const key_value &key_value : bucket)
            if (is_topic(key_value) == topics && text.size() <= longest)
                text += (text.empty() || text.back() == ' ' ? "" : " ") + text_of(key_value);
}

} // namespace

std::string short_description(const inspectable &content)
{
    std::string text;
    for (const AndList &alternative : content.and_lists) {
        if (!text.empty())
            text += " | ";
        append_keys(text, alternative.keyed(), true);
        append_keys(text, alternative.keyed(), false);
        append_keys(text, alternative.wildcards(), false);
        if (text.size() > longest)
            break;
    }
    if (text.size() <= longest)
        return text;
    std::size_t end = longest;
    while (end > 0 && is_inside_character(text[end]))
        --end;
    return text.substr(0, end) + "...";
}

} // namespace qandor
