// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/eventwatch.hpp"

#include "cli/switchbus.hpp"

namespace qandor::cli {
namespace {

MainLoop &with_switch(MainLoop &loop)
{
    SwitchBus().require_switch();
    return loop;
}

} // namespace

void WatchOptions::add_to(Options &options)
{
    options.count({"count", 'n', "end after so many events", "N"}, count);
    options.seconds({"timeout", 't', "end after so many seconds", "S"}, timeout);
    options.flag({"secure", 's', "tell which user sent each event"}, secure);
    options.flag({"since-start", 0, "leave out the states that are there at the start"},
                 since_start);
    options.flag({"visible", 0, "count as a subscriber, so that producers begin to send"}, visible);
}

EventWatch::EventWatch(MainLoop &loop, const char *name, const WatchOptions &options)
    : loop_(loop), options_(options), switch_(with_switch(loop)),
      consumer_(std::make_unique<EventConsumer>(name))
{
}

void EventWatch::subscribe(const Expression &expression, SecureEventFunction event,
                           const NotificationFunction &notification)
{
    function_ = std::move(event);
    Expression wanted = options_.visible ? expression : expression.clandestine();
    if (options_.secure)
        subscription_.emplace(consumer_->subscribe_secure(
            wanted,
            [this](const Event &received, std::optional<guint32> uid) { receive(received, uid); },
            notification));
    else
        subscription_.emplace(consumer_->subscribe(
            wanted, [this](const Event &received) { receive(received, std::nullopt); },
            notification));
}

void EventWatch::receive(const Event &event, std::optional<guint32> uid)
{
    bool is_old = options_.since_start && event.is_property() && event.time() < start_;
    if (is_old || (options_.count && seen_ == *options_.count))
        return;
    ++seen_;
    function_(event, uid);
    if (options_.count && seen_ == *options_.count)
        loop_.quit();
}

int EventWatch::run()
{
    loop_.run(options_.timeout);
    return end();
}

int EventWatch::end()
{
    subscription_.reset();
    loop_.finish(consumer_);
    bool is_missing = options_.count && seen_ < *options_.count && !loop_.is_interrupted();
    return is_missing ? EX_TEMPFAIL : EX_OK;
}

} // namespace qandor::cli
