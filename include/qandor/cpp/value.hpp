// SPDX-License-Identifier: LGPL-2.1-or-later

/**
 * Values: texts on the bus, bool, int, double and std::string in a program.
 */
#pragma once

#include <qandor/cpp/error.hpp>
#include <qandor/eventutils.h>

#include <cerrno>
#include <concepts>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace qandor {

/** What an event's value can be given as. */
template <class T>
concept EventValue = (std::is_arithmetic_v<std::remove_cvref_t<T>> &&
                      !std::same_as<std::remove_cvref_t<T>, char>) ||
                     std::convertible_to<T, std::string_view>;

namespace detail {

struct TextDeleter {
    void operator()(gchar *text) const { g_free(text); }
};
using Text = std::unique_ptr<gchar, TextDeleter>;

inline std::string string_of(const gchar *text)
{
    return text ? text : "";
}

/** The value type that a key is declared with for values of T. */
template <EventValue T> constexpr guint32 value_type_of()
{
    using Plain = std::remove_cvref_t<T>;
    if constexpr (std::same_as<Plain, bool>)
        return VALUE_TYPE_BOOL;
    else if constexpr (std::floating_point<Plain>)
        return VALUE_TYPE_DOUBLE;
    else if constexpr (std::integral<Plain>)
        return VALUE_TYPE_INT;
    else
        return VALUE_TYPE_STRING;
}

inline const char *name_of_type(guint32 type)
{
    switch (type) {
    case VALUE_TYPE_INT:
        return "an int";
    case VALUE_TYPE_BOOL:
        return "a bool";
    case VALUE_TYPE_DOUBLE:
        return "a double";
    default:
        return "a text";
    }
}

/** The text that stands for a value on the bus. */
template <EventValue T> std::string text_of(const T &value)
{
    if constexpr (std::same_as<T, bool>) {
        return value ? "1" : "0";
    } else if constexpr (std::integral<T>) {
        return std::to_string(value);
    } else if constexpr (std::floating_point<T>) {
        gdouble number = static_cast<gdouble>(value);
        return Text(event_utils_value_type_to_string(&number, VALUE_TYPE_DOUBLE)).get();
    } else {
        return std::string(std::string_view(value));
    }
}

/** The value that a text stands for; nothing when it stands for none of the type. */
template <class T> std::optional<T> value_of(const std::string &text)
{
    char *end = nullptr;
    errno = 0;
    if constexpr (std::same_as<T, std::string>) {
        return text;
    } else if constexpr (std::same_as<T, bool>) {
        if (text != "0" && text != "1")
            return std::nullopt;
        return text == "1";
    } else if constexpr (std::floating_point<T>) {
        double number = g_ascii_strtod(text.c_str(), &end);
        return text.empty() || *end ? std::nullopt : std::optional(static_cast<T>(number));
    } else {
        static_assert(std::integral<T> && sizeof(T) <= sizeof(gint64));
        gint64 number = g_ascii_strtoll(text.c_str(), &end, 10);
        if (text.empty() || *end || errno != 0 || !std::in_range<T>(number))
            return std::nullopt;
        return static_cast<T>(number);
    }
}

} // namespace detail
} // namespace qandor
