// SPDX-License-Identifier: LGPL-2.1-or-later

/**
 * Consuming events:
 *
 *     EventConsumer consumer("display");
 *     Subscription levels = consumer.subscribe(key("topic0") == "Power", [](Event event) {
 *         show(event["level"].as<int>());
 *     });
 *
 * All functions may be called from any thread; functions that are given to them run on the thread
 * that iterates the default main context, and must not throw.
 */
#pragma once

#include <qandor/cpp/declaration.hpp>
#include <qandor/cpp/event.hpp>
#include <qandor/eventconsumer.h>
#include <qandor/notification.h>
#include <qandor/propertystate.h>

#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace qandor {

/** That a declaration whose events can satisfy a subscription is there, or has gone. */
class Notification : public detail::Record<::notification, notification_copy, notification_free> {
public:
    using Record::Record;

    bool is_removal() const { return notification_is_type_deleted(c()); }
    guint32 declaration_id() const { return notification_get_declaration_id(c()); }
    Declaration declaration() const
    {
        return Declaration(event_declaration_copy(notification_get_declaration(c())));
    }
};

inline ::property_state *copy_property_state(const ::property_state *state)
{
    std::unique_ptr<GArray, decltype(&g_array_unref)> bytes(property_state_serialize(state),
                                                            g_array_unref);
    return property_state_deserialize(bytes.get());
}

/** The state of a property: keys and their values. */
class PropertyState
    : public detail::Record<::property_state, copy_property_state, property_state_free> {
public:
    using Record::Record;

    /** The value of the key as a T; nothing when it is not there or is no T. */
    template <class T> std::optional<T> get(const char *key) const
    {
        const gchar *text = inspectable_get_value(property_state_get_inspectable(c()), key);
        return text ? detail::value_of<T>(text) : std::nullopt;
    }
    bool has(const char *key) const { return get<std::string>(key).has_value(); }
};

using EventFunction = std::function<void(Event)>;
using NotificationFunction = std::function<void(Notification)>;
/** As EventFunction, with the user id of the sender; nothing when it cannot be known. */
using SecureEventFunction = std::function<void(Event, std::optional<guint32> uid)>;

namespace detail {

class ConsumerHandle {
public:
    explicit ConsumerHandle(const char *name) : handle_(event_consumer_new(name)) {}
    ConsumerHandle(const ConsumerHandle &) = delete;
    ConsumerHandle &operator=(const ConsumerHandle &) = delete;
    ~ConsumerHandle()
    {
        event_consumer_int_free(
            handle_,
            [](::event_consumer *, gpointer data) {
                std::unique_ptr<Gone> gone(static_cast<Gone *>(data));
                if (*gone)
                    (*gone)();
            },
            new Gone(std::move(gone_)));
    }

    ::event_consumer *c() const { return handle_; }
    void when_gone(std::function<void()> gone) { gone_ = std::move(gone); }

private:
    using Gone = std::function<void()>;

    ::event_consumer *handle_;
    Gone gone_;
};

/** What a subscription's functions are, which live until it has ended. */
struct SubscriptionFunctions {
    SecureEventFunction event;
    NotificationFunction notification;
};

} // namespace detail

/** A subscription, which ends when this ends. Then its functions are not called any more. */
class [[nodiscard]] Subscription {
public:
    Subscription(Subscription &&) noexcept = default;
    Subscription &operator=(Subscription &&other) noexcept
    {
        end();
        consumer_ = std::move(other.consumer_);
        functions_ = std::exchange(other.functions_, nullptr);
        token_ = std::exchange(other.token_, 0);
        return *this;
    }
    ~Subscription() { end(); }

    guint32 token() const { return token_; }

    /** Asks for the current states of the properties that match; they come as events. */
    void refresh() const { event_consumer_refresh_async(consumer_->c(), token_); }

private:
    friend class EventConsumer;
    using Functions = std::shared_ptr<detail::SubscriptionFunctions>;

    Subscription(std::shared_ptr<detail::ConsumerHandle> consumer, Functions *functions,
                 guint32 token)
        : consumer_(std::move(consumer)), functions_(functions), token_(token)
    {
    }

    void end()
    {
        if (!consumer_)
            return;
        event_consumer_unsubscribe_and_notify(
            consumer_->c(), token_,
            [](guint32, gpointer data, GError *error) {
                g_clear_error(&error);
                delete static_cast<Functions *>(data);
            },
            functions_, nullptr);
        consumer_.reset();
    }

    std::shared_ptr<detail::ConsumerHandle> consumer_;
    Functions *functions_;
    guint32 token_;
};

class EventConsumer {
public:
    explicit EventConsumer(const char *name)
        : handle_(std::make_shared<detail::ConsumerHandle>(name))
    {
    }

    /** The handle, for functions of the C interface; it stays owned here. */
    ::event_consumer *c() const { return handle_->c(); }

    /**
     * The function is called once the consumer has ended and said farewell: until then the main
     * context has to go on.
     */
    void when_gone(std::function<void()> gone) { handle_->when_gone(std::move(gone)); }

    /**
     * Subscribes. An Error for an expression that cannot be built, see Expression::try_build(). The
     * consumer lives as long as any of its subscriptions.
     */
    Result<Subscription> try_subscribe(const Expression &expression, EventFunction event,
                                       NotificationFunction notification = {})
    {
        auto without_uid = [event = std::move(event)](Event received, std::optional<guint32>) {
            event(std::move(received));
        };
        return file(expression, {std::move(without_uid), std::move(notification)},
                    SUBSCRIPTION_TYPE_NORMAL);
    }
    Subscription subscribe(const Expression &expression, EventFunction event,
                           NotificationFunction notification = {})
    {
        return try_subscribe(expression, std::move(event), std::move(notification)).value();
    }

    /** Subscribes with a function that is told who sent the event, at the cost of asking. */
    Result<Subscription> try_subscribe_secure(const Expression &expression,
                                              SecureEventFunction event,
                                              NotificationFunction notification = {})
    {
        return file(expression, {std::move(event), std::move(notification)},
                    SUBSCRIPTION_TYPE_SECURE);
    }
    Subscription subscribe_secure(const Expression &expression, SecureEventFunction event,
                                  NotificationFunction notification = {})
    {
        return try_subscribe_secure(expression, std::move(event), std::move(notification)).value();
    }

    /**
     * The current state of a property that the expression matches. Waits for the thread that
     * iterates the default main context, on which it must not be called. An Error (code 7) with the
     * event switch's words when there is none.
     */
    Result<PropertyState> try_property_state(const Expression &expression) const
    {
        Result<Expression::C> built = expression.try_build();
        if (!built)
            return built.error();
        GError *error = nullptr;
        ::property_state *state = event_consumer_get_property_state(c(), built.value().c(), &error);
        if (error)
            return detail::take_error(error);
        if (!state)
            return detail::usage_error("A state cannot be waited for on the main context's thread");
        return PropertyState(state);
    }
    PropertyState property_state(const Expression &expression) const
    {
        return try_property_state(expression).value();
    }

private:
    Result<Subscription> file(const Expression &expression, detail::SubscriptionFunctions functions,
                              guint32 type)
    {
        Result<Expression::C> built = expression.try_build();
        if (!built)
            return built.error();
        bool is_secure = type == SUBSCRIPTION_TYPE_SECURE;
        GCallback event = is_secure ? G_CALLBACK(tell_secure_event) : G_CALLBACK(tell_event);
        GCallback notification =
            is_secure ? G_CALLBACK(tell_secure_notification) : G_CALLBACK(tell_notification);
        if (!functions.notification)
            notification = nullptr;

        GError *error = nullptr;
        guint32 token =
            event_consumer_int_generate_token(c(), built.value().c(), event, type, &error);
        if (token == 0)
            return detail::take_error(error);
        auto *kept = new Subscription::Functions(
            std::make_shared<detail::SubscriptionFunctions>(std::move(functions)));
        event_consumer_int_subscribe(c(), token, built.value().c(), nullptr, event, notification,
                                     type, kept);
        return Subscription(handle_, kept, token);
    }

    // Each keeps the functions while one of them runs: it may end its own subscription.
    static void tell_secure_event(::event *event, guint32 uid, gpointer data) noexcept
    {
        Subscription::Functions functions = *static_cast<Subscription::Functions *>(data);
        functions->event(Event(event), uid == G_MAXUINT32 ? std::nullopt : std::optional(uid));
    }
    static void tell_event(::event *event, gpointer data) noexcept
    {
        tell_secure_event(event, G_MAXUINT32, data);
    }
    static void tell_notification(::notification *notification, gpointer data) noexcept
    {
        Subscription::Functions functions = *static_cast<Subscription::Functions *>(data);
        functions->notification(Notification(notification));
    }
    static void tell_secure_notification(::notification *notification, guint32,
                                         gpointer data) noexcept
    {
        tell_notification(notification, data);
    }

    std::shared_ptr<detail::ConsumerHandle> handle_;
};

} // namespace qandor
