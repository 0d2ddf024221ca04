// SPDX-License-Identifier: LGPL-2.1-or-later

/**
 * Producing events:
 *
 *     EventProducer producer("battery");
 *     Publication level = producer.declare(Declaration().topic("Power").key<int>("level"));
 *     ...
 *     Event event = level.event();
 *     event["level"] = 80;
 *     level.send(event);
 *
 * All functions may be called from any thread; functions that are given to them run on the thread
 * that iterates the default main context, and must not throw.
 */
#pragma once

#include <qandor/cpp/declaration.hpp>
#include <qandor/eventproducer.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace qandor {

/** Is told, each time it changes, which declarations have subscribers. */
using SubscriptionsChanged = std::function<void(const std::vector<guint32> &local_ids)>;

namespace detail {

/** A producer's handle and what its functions need, which lives until the handle is gone. */
class ProducerHandle {
public:
    ProducerHandle(const char *name, SubscriptionsChanged changed)
        : functions_(new Functions{std::move(changed), {}}),
          handle_(event_producer_new_full(name, functions_->changed ? tell : nullptr, functions_))
    {
    }
    ProducerHandle(const ProducerHandle &) = delete;
    ProducerHandle &operator=(const ProducerHandle &) = delete;
    ~ProducerHandle()
    {
        event_producer_int_free(
            handle_,
            [](::event_producer *, gpointer data) {
                std::unique_ptr<Functions> functions(static_cast<Functions *>(data));
                if (functions->gone)
                    functions->gone();
            },
            functions_);
    }

    void when_gone(std::function<void()> gone) { functions_->gone = std::move(gone); }

    ::event_producer *c() const { return handle_; }

private:
    struct Functions {
        SubscriptionsChanged changed;
        std::function<void()> gone;
    };

    static void tell(GArray *ids, gpointer data) noexcept
    {
        const auto *begin = reinterpret_cast<const guint32 *>(ids->data);
        static_cast<Functions *>(data)->changed(std::vector(begin, begin + ids->len));
    }

    Functions *functions_;
    ::event_producer *handle_;
};

/** What the functions of one declaration need, which lives until it has been taken back. */
struct PublicationFunctions {
    std::function<void()> complete;
    std::shared_ptr<FillState> fill;
};

} // namespace detail

/**
 * A declaration that is known to its producer. It is taken back when this ends, at once: what was
 * sent in the same round of the main context has not gone yet, and finds nobody any more.
 */
class [[nodiscard]] Publication {
public:
    Publication(Publication &&) noexcept = default;
    Publication &operator=(Publication &&other) noexcept
    {
        end();
        producer_ = std::move(other.producer_);
        functions_ = std::exchange(other.functions_, nullptr);
        local_id_ = std::exchange(other.local_id_, 0);
        return *this;
    }
    ~Publication() { end(); }

    guint32 local_id() const { return local_id_; }

    /** Whether the event switch knows it, so that plain events can be sent. */
    bool is_known() const { return event_producer_declaration_complete(c(), local_id_); }

    /** A new event to fill in. */
    Event event() const { return Event(event_producer_prepare_event(c(), local_id_)); }

    /**
     * Sends a copy of the event to all whose expressions it satisfies. An Error when keys are open
     * (code 6), or before the event switch knows a declaration that is no property (code 4).
     */
    Result<void> try_send(const Event &event) const
    {
        GError *error = nullptr;
        if (event_producer_send_event(c(), event.c(), &error))
            return {};
        return detail::take_error(error);
    }
    void send(const Event &event) const { try_send(event).value(); }

private:
    friend class EventProducer;
    using Functions = std::shared_ptr<detail::PublicationFunctions>;

    Publication(std::shared_ptr<detail::ProducerHandle> producer, Functions *functions,
                guint32 local_id)
        : producer_(std::move(producer)), functions_(functions), local_id_(local_id)
    {
    }

    ::event_producer *c() const { return producer_->c(); }

    void end()
    {
        if (!producer_)
            return;
        event_producer_undeclare_and_notify(
            c(), local_id_,
            [](guint32, gpointer data, GError *error) {
                g_clear_error(&error);
                delete static_cast<Functions *>(data);
            },
            functions_);
        producer_.reset();
    }

    std::shared_ptr<detail::ProducerHandle> producer_;
    Functions *functions_;
    guint32 local_id_;
};

class EventProducer {
public:
    explicit EventProducer(const char *name, SubscriptionsChanged changed = {})
        : handle_(std::make_shared<detail::ProducerHandle>(name, std::move(changed)))
    {
    }

    /** The handle, for functions of the C interface; it stays owned here. */
    ::event_producer *c() const { return handle_->c(); }

    /**
     * The function is called once the producer has ended and said farewell: until then the main
     * context has to go on.
     */
    void when_gone(std::function<void()> gone) { handle_->when_gone(std::move(gone)); }

    /**
     * Declares. @complete is called once, when the event switch has finished with it. An Error for
     * an external declaration without a topic (code 6). The producer lives as long as any of its
     * publications.
     */
    Result<Publication> try_declare(const Declaration &declaration,
                                    std::function<void()> complete = {})
    {
        GError *error = nullptr;
        guint32 local_id = event_producer_int_get_decl_id(c(), declaration.c(), &error);
        if (local_id == 0)
            return detail::take_error(error);
        auto *functions = new Publication::Functions(
            new detail::PublicationFunctions{std::move(complete), declaration.fill()});
        event_producer_int_declare(c(), declaration.c(), local_id, nullptr, tell_complete,
                                   functions);
        return Publication(handle_, functions, local_id);
    }
    Publication declare(const Declaration &declaration, std::function<void()> complete = {})
    {
        return try_declare(declaration, std::move(complete)).value();
    }

private:
    static void tell_complete(guint32, gpointer data) noexcept
    {
        // The function may take its own declaration back.
        Publication::Functions functions = *static_cast<Publication::Functions *>(data);
        if (functions->complete)
            functions->complete();
    }

    std::shared_ptr<detail::ProducerHandle> handle_;
};

} // namespace qandor
