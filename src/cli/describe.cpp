// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/describe.hpp"

#include "cli/terminal.hpp"

namespace qandor::cli {
namespace {

std::string shown_key(const KeyView &key)
{
    std::string name = printable_word(key.key);
    return key.name_space.empty() ? name : printable_word(key.name_space) + ":" + name;
}

template <class Show> std::string joined(const std::vector<KeyView> &keys, Show show)
{
    std::size_t topics = topics_of(keys).size();
    std::string text;
    for (const KeyView &key : keys)
        if (key.topic_depth() < 0 || static_cast<std::size_t>(key.topic_depth()) >= topics)
            text += (text.empty() ? "" : " ") + show(key);
    return text;
}

std::string formatted(std::chrono::system_clock::time_point time, bool utc, const char *format)
{
    auto usec =
        std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
    gint64 seconds = usec / G_USEC_PER_SEC - (usec % G_USEC_PER_SEC < 0 ? 1 : 0);
    GDateTime *made =
        utc ? g_date_time_new_from_unix_utc(seconds) : g_date_time_new_from_unix_local(seconds);
    if (!made)
        return "?";
    detail::Text text(g_date_time_format(made, format));
    g_date_time_unref(made);
    return text.get();
}

std::string fraction(std::chrono::system_clock::time_point time, int digits)
{
    auto usec =
        std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
    auto part = std::to_string(1000000 + (usec % 1000000 + 1000000) % 1000000);
    return part.substr(1, static_cast<std::size_t>(digits));
}

} // namespace

std::string topic_path(const std::vector<KeyView> &keys)
{
    std::string path;
    for (const KeyView &topic : topics_of(keys)) {
        std::string space = topic.name_space.empty() ? "" : printable(topic.name_space) + ":";
        path += (path.empty() ? "" : "/") + space + printable(topic.value);
    }
    return path.empty() ? "-" : path;
}

std::string keys_text(const std::vector<KeyView> &keys)
{
    return joined(keys, [](const KeyView &key) {
        std::string state = key.is_state() ? "*" : "";
        return shown_key(key) + (key.has_value ? "=" + printable_word(key.value) + state
                                               : std::string(":") + type_name(key.type) + state);
    });
}

std::string values_text(const std::vector<KeyView> &keys)
{
    return joined(keys, [](const KeyView &key) {
        return shown_key(key) + "=" + (key.has_value ? printable_word(key.value) : "?");
    });
}

std::string kind_of(const Declaration &declaration)
{
    return std::string(declaration.is_internal() ? "internal " : "") +
           (declaration.is_property() ? "property" : "event");
}

std::string tags_text(const std::vector<std::string> &tags)
{
    std::string text;
    for (const std::string &tag : tags)
        text += (text.empty() ? "{" : " {") + printable(tag) + "}";
    return text;
}

std::string counted(guint64 number, const char *one, const char *many)
{
    return std::to_string(number) + " " + (number == 1 ? one : many);
}

std::chrono::system_clock::time_point time_of(const Notification &notification)
{
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    GTimeVal time = notification_get_timestamp(notification.c());
    G_GNUC_END_IGNORE_DEPRECATIONS
    return std::chrono::system_clock::time_point(std::chrono::seconds(time.tv_sec) +
                                                 std::chrono::microseconds(time.tv_usec));
}

std::string clock_time(std::chrono::system_clock::time_point time)
{
    return formatted(time, false, "%H:%M:%S.") + fraction(time, 3);
}

std::string iso_time(std::chrono::system_clock::time_point time)
{
    return formatted(time, true, "%Y-%m-%dT%H:%M:%S.") + fraction(time, 6) + "Z";
}

} // namespace qandor::cli
