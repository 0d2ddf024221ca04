// SPDX-License-Identifier: LGPL-2.1-or-later

/**
 * Declarations: which keys the events of a type have, and what of them stays open.
 *
 *     auto load = Declaration().topic("Device", "Load").key<double>("load").key("unit", "1");
 */
#pragma once

#include <qandor/cpp/event.hpp>
#include <qandor/eventdeclaration.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qandor {

/** What a key may have besides its value. "" is none. */
struct KeyTraits {
    std::string name_space = {};
    std::string nice_name = {};
    std::string value_nice_name = {};
    std::string complex_type = {};
    std::vector<std::string> tags = {};
};

/** Fills a property's current state into an event. Runs on the main context's thread. */
using FillState = std::function<void(Event &)>;

class Declaration
    : public detail::Record<::event_declaration, event_declaration_copy, event_declaration_free> {
public:
    using Record::Record;

    /** An external declaration without keys; it wants a topic. */
    Declaration() : Record(event_declaration_new(FALSE)) {}

    /** A declaration that is not in the tree of topics and wants none. */
    static Declaration internal() { return Declaration(event_declaration_new(TRUE)); }

    /** The declaration of an installed type, or nothing. */
    static std::optional<Declaration> installed(const char *type)
    {
        return taken(event_declaration_new_from_type(type));
    }
    /** The declaration that an XML text says, or nothing, with a warning that says why. */
    static std::optional<Declaration> from_xml(const char *xml)
    {
        return taken(event_declaration_deserialize_xml(xml));
    }
    std::string to_xml() const { return detail::Text(event_declaration_serialize_xml(c())).get(); }

    /** Sets "topic0", "topic1" and so on. */
    template <class... Topics> Declaration &topic(const Topics &...topics)
    {
        int depth = 0;
        (key("topic" + std::to_string(depth++), topics), ...);
        return *this;
    }

    /** A key whose value, a T (bool, int, double or std::string), each event fills in. */
    template <EventValue T> Declaration &key(const std::string &name, const KeyTraits &traits = {})
    {
        event_declaration_add_key(c(), name.c_str(), detail::value_type_of<T>());
        return set_traits(name, traits);
    }

    /** A key that has this value, of its type. */
    template <EventValue T>
    Declaration &key(const std::string &name, const T &value, const KeyTraits &traits = {})
    {
        constexpr guint32 type = detail::value_type_of<T>();
        if constexpr (type == VALUE_TYPE_STRING) {
            event_declaration_add_key_value(c(), name.c_str(), std::string(value).c_str(), type);
        } else if constexpr (type == VALUE_TYPE_DOUBLE) {
            gdouble number = static_cast<gdouble>(value);
            event_declaration_add_key_value(c(), name.c_str(), &number, type);
        } else {
            gint number = static_cast<gint>(value);
            event_declaration_add_key_value(c(), name.c_str(), &number, type);
        }
        return set_traits(name, traits);
    }

    /**
     * Makes it a property with the state in this key. The function, if any, is asked for the state
     * when the declaration is made known; without one it begins with the first event that is sent.
     */
    Declaration &property(const std::string &state_key, FillState fill = {})
    {
        fill_ = fill ? std::make_shared<FillState>(std::move(fill)) : nullptr;
        event_declaration_set_property(c(), state_key.c_str(), fill_ ? call_fill : nullptr,
                                       fill_.get());
        return *this;
    }

    bool is_property() const { return event_declaration_is_property(c()); }
    bool is_internal() const { return event_declaration_is_internal(c()); }
    guint32 global_id() const { return event_declaration_get_global_id(c()); }

    /** An event of this type with its keys open, for looking at them. */
    Event sample() const { return Event(event_declaration_generate_event(c())); }

    /** Whether events of this type can satisfy the expression. */
    bool matches(const Expression &expression) const
    {
        return event_declaration_contains(c(), expression.build().c());
    }

    /** What a producer keeps as long as the declaration is known to it. */
    const std::shared_ptr<FillState> &fill() const { return fill_; }

private:
    static std::optional<Declaration> taken(::event_declaration *declaration)
    {
        return declaration ? std::optional(Declaration(declaration)) : std::nullopt;
    }

    static gboolean call_fill(::event *event, gpointer data) noexcept
    {
        Event lent(event);
        (*static_cast<FillState *>(data))(lent);
        return lent.release() == event;
    }

    Declaration &set_traits(const std::string &name, const KeyTraits &traits)
    {
        const char *key = name.c_str();
        event_declaration_set_name_space(c(), key, traits.name_space.c_str());
        event_declaration_set_complex_type_name(c(), key, traits.complex_type.c_str());
        event_declaration_set_nice_names(c(), key, traits.nice_name.c_str(),
                                         traits.value_nice_name.c_str());
        for (const std::string &tag : traits.tags)
            event_declaration_add_key_tag(c(), key, tag.c_str());
        return *this;
    }

    std::shared_ptr<FillState> fill_;
};

} // namespace qandor
