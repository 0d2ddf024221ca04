// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/typechanges.hpp"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <variant>

namespace qandor {

int TypeChanges::begin(sd_event *event)
{
    done_.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (done_.get() < 0)
        return -errno;
    sd_event_source *source = nullptr;
    int r = sd_event_add_io(event, &source, done_.get(), EPOLLIN, change_is_done, this);
    done_source_.reset(source);
    return r;
}

void TypeChanges::add(guint32 uid, Charge charge, Begin begin, Finish finish)
{
    steps_.push_back({uid, std::move(charge), std::move(begin), std::move(finish)});
    go_on();
}

bool TypeChanges::holds(guint32 uid) const
{
    return std::ranges::find(steps_, uid, &Step::uid) != steps_.end();
}

void TypeChanges::go_on()
{
    while (!is_under_way_ && !steps_.empty()) {
        is_under_way_ = true;
        TypeStep step = steps_.front().begin();
        if (const auto *change = std::get_if<FileChange>(&step))
            start(*change);
        else
            finish(std::get<TypeResult>(step));
    }
}

// Where no thread can be had, all wait.
void TypeChanges::start(const FileChange &change)
{
    change_ = change;
    auto apply = [this] {
        error_ = change_.apply();
        eventfd_write(done_.get(), 1);
    };
    try {
        thread_ = std::jthread(apply);
    } catch (const std::system_error &) {
        apply();
    }
}

int TypeChanges::change_is_done(sd_event_source *, int file, guint32, void *data)
{
    auto &self = *static_cast<TypeChanges *>(data);
    eventfd_t count = 0;
    if (eventfd_read(file, &count) < 0)
        return 0;
    if (self.thread_.joinable())
        self.thread_.join();
    self.finish(self.folders_.result_of(self.change_, self.error_));
    self.go_on();
    return 0;
}

void TypeChanges::finish(TypeResult result)
{
    Step step = std::move(steps_.front());
    steps_.pop_front();
    is_under_way_ = false;
    step.finish(result);
}

} // namespace qandor
