// SPDX-License-Identifier: LGPL-2.1-or-later

/**
 * Events, with values in their own types:
 *
 *     event["load"] = 0.42;
 *     double load = event["load"];
 *     std::optional<int> count = event.get<int>("count");
 */
#pragma once

#include <qandor/cpp/expression.hpp>
#include <qandor/cpp/record.hpp>
#include <qandor/cpp/value.hpp>
#include <qandor/event.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qandor {

class Event : public detail::Record<::event, event_copy, event_free> {
public:
    using Record::Record;

    /** A key of an event, to be read as a type or to be filled in. */
    class Value {
    public:
        Value(const Event &of, const char *key) : event_(of), key_(key) {}

        /** The value as a T. An Error when the key is not there or its value is no T. */
        template <class T> T as() const
        {
            std::optional<T> value = event_.get<T>(key_);
            if (!value)
                detail::raise(detail::usage_error("The event has no such value of the key '" +
                                                  std::string(key_) + "'"));
            return *std::move(value);
        }
        operator std::string() const { return as<std::string>(); }
        template <class T>
        requires std::is_arithmetic_v<T>
        operator T() const { return as<T>(); }

    protected:
        const Event &event_;
        const char *key_;
    };

    class OpenValue : public Value {
    public:
        OpenValue(Event &of, const char *key) : Value(of, key), open_(of) {}

        /** Fills the value in. An Error as Event::try_set() has it. */
        template <EventValue T> OpenValue &operator=(const T &value)
        {
            open_.try_set(key_, value).value();
            return *this;
        }

    private:
        Event &open_;
    };

    /** The key is not copied: it has to live as long as the result is used. */
    OpenValue operator[](const char *key) { return {*this, key}; }
    Value operator[](const char *key) const { return {*this, key}; }

    bool has(const char *key) const { return event_get_value(c(), key) != nullptr; }

    /** The value of the key as a T; nothing when it is not there or is no T. */
    template <class T> std::optional<T> get(const char *key) const
    {
        const gchar *text = event_get_value(c(), key);
        return text ? detail::value_of<T>(text) : std::nullopt;
    }

    /**
     * Fills a value in: a bool, int, double or text as the key is declared; an integer also goes
     * where a double is wanted. An Error for an unknown key, for another type, for a number that
     * does not fit, and for a key whose value never was open.
     */
    template <EventValue T> Result<void> try_set(const char *key, const T &value)
    {
        gint place = event_get_index(c(), key);
        if (place < 0)
            return detail::usage_error("The event has no key '" + std::string(key) + "'");
        guint32 type = event_get_type_at(c(), static_cast<guint>(place));
        if (!store(key, type, value))
            return detail::usage_error("The key '" + std::string(key) + "' does not take this: " +
                                       detail::name_of_type(type) + " that is open is wanted");
        return {};
    }

    /** The keys in their order. */
    std::vector<std::string> keys() const
    {
        std::vector<std::string> keys;
        for (guint i = 0; i < event_get_key_count(c()); ++i)
            keys.emplace_back(event_get_key_at(c(), i));
        return keys;
    }
    /** The tags of the whole event, in their order. */
    std::vector<std::string> tags() const
    {
        return detail::take_reversed_strings(event_get_tags(c()));
    }

    bool is_property() const { return event_is_property(c()); }
    bool is_complete() const { return event_is_complete(c()); }

    /** When it happened; the epoch before it was sent. */
    std::chrono::system_clock::time_point time() const
    {
        G_GNUC_BEGIN_IGNORE_DEPRECATIONS
        GTimeVal time = event_get_timestamp(c());
        G_GNUC_END_IGNORE_DEPRECATIONS
        return std::chrono::system_clock::time_point(std::chrono::seconds(time.tv_sec) +
                                                     std::chrono::microseconds(time.tv_usec));
    }

    /** Whether the event satisfies the expression. */
    bool matches(const Expression &expression) const
    {
        return event_contains(c(), expression.build().c());
    }

private:
    template <EventValue T> bool store(const char *key, guint32 type, const T &value)
    {
        constexpr guint32 given = detail::value_type_of<T>();
        if constexpr (given == VALUE_TYPE_STRING) {
            return type == given && event_set_value(c(), key, std::string(value).c_str());
        } else if constexpr (given == VALUE_TYPE_BOOL) {
            gboolean truth = value;
            return type == given && event_set_value(c(), key, &truth);
        } else {
            if (type == VALUE_TYPE_DOUBLE) {
                gdouble number = static_cast<gdouble>(value);
                return event_set_value(c(), key, &number);
            }
            if constexpr (given == VALUE_TYPE_INT) {
                gint number = static_cast<gint>(value);
                return type == given && std::in_range<gint>(value) &&
                       event_set_value(c(), key, &number);
            }
            return false;
        }
    }
};

} // namespace qandor
