// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/replayer.hpp"

#include "cli/declaring.hpp"

#include <algorithm>

namespace qandor::cli {

Replayer::Replayer(MainLoop &loop, EventProducer &producer,
                   const RecordedDeclarations &declarations, double speed)
    : loop_(loop), producer_(producer), declarations_(declarations), speed_(speed)
{
}

void Replayer::run(RecordingReader &reader, guint64 entries)
{
    reader_ = &reader;
    entries_ = entries;
    publications_ = declare_and_wait(producer_, loop_, declarations_.all());
    if (!loop_.is_interrupted()) {
        go_on();
        loop_.run();
    }
    is_over_ = true;
    publications_.clear();
}

// To the next event that can be sent. What a recorder has added meanwhile is left.
void Replayer::go_on()
{
    while (reader_->count() < entries_) {
        std::optional<RecordingEntry> entry = reader_->next();
        if (!entry)
            break;
        if (entry->kind != EntryKind::Event)
            continue;
        Event event = event_of(*entry);
        if (auto place = declarations_.of(event, reader_->count()))
            return wait_for(*entry, std::move(event), *place);
        ++left_out_[event_get_global_id(event.c())];
    }
    loop_.quit();
}

// The event is now one of our own producer, which gives it its ids and the time.
void Replayer::wait_for(const RecordingEntry &entry, Event event, std::size_t place)
{
    event_set_local_id(event.c(), publications_[place].local_id());
    event_set_timestamp(event.c(), 0, 0);
    next_ = std::move(event);
    if (!first_time_) {
        first_time_ = entry.time;
        began_ = g_get_monotonic_time();
    }
    guint64 passed = entry.time - std::min(entry.time, *first_time_);
    double usec = speed_ > 0 ? static_cast<double>(passed) / speed_ : 0;
    due_ = began_ + static_cast<gint64>(std::min(usec, 1e15));
    wait();
}

double Replayer::seconds_left() const
{
    return static_cast<double>(due_ - g_get_monotonic_time()) / G_USEC_PER_SEC;
}

void Replayer::wait()
{
    constexpr double tick = 0.001, hour = 3600;
    double left = seconds_left();
    if (left < tick)
        send();
    else
        loop_.after(std::min(left, hour), [this] { wait(); });
}

void Replayer::send()
{
    event_producer_int_send_event(producer_.c(), next_->c(), event_copy(next_->c()), sent, this,
                                  nullptr);
}

void Replayer::sent(guint32, ::event *, gpointer self, GError *error)
{
    auto *replayer = static_cast<Replayer *>(self);
    if (error)
        return replayer->loop_.fail({EX_UNAVAILABLE, detail::take_error(error).message()});
    ++replayer->sent_;
    if (!replayer->is_over_)
        replayer->go_on();
}

} // namespace qandor::cli
