// SPDX-License-Identifier: LGPL-2.1-or-later

// What waits in one handle, in bytes, wherever it waits: in the command source, to be run on the
// main context's thread, or in the call window, to be answered for. Both count into the same
// number, and tell what they have dropped in the same report.
#pragma once

#include "platform/lossreport.hpp"

#include <atomic>
#include <memory>
#include <utility>

namespace qandor {

class Backlog {
public:
    static constexpr std::size_t default_limit = 64 << 20;

    explicit Backlog(std::size_t limit = default_limit) : limit_(limit) {}

    std::size_t bytes() const { return bytes_; }
    std::size_t limit() const { return limit_; }
    bool is_over() const { return bytes_ > limit_; }

    LossReport report;

private:
    friend class BacklogPart;
    std::atomic<std::size_t> bytes_ = 0;
    const std::size_t limit_;
};

// A number of bytes that counts for as long as it lives.
class BacklogPart {
public:
    BacklogPart() = default;
    BacklogPart(std::shared_ptr<Backlog> backlog, std::size_t bytes)
        : backlog_(std::move(backlog)), bytes_(bytes)
    {
        if (backlog_)
            backlog_->bytes_ += bytes_;
    }
    BacklogPart(BacklogPart &&other) noexcept
        : backlog_(std::move(other.backlog_)), bytes_(other.bytes_)
    {
    }
    BacklogPart &operator=(BacklogPart &&other) noexcept
    {
        std::swap(backlog_, other.backlog_);
        std::swap(bytes_, other.bytes_);
        return *this;
    }
    ~BacklogPart()
    {
        if (backlog_)
            backlog_->bytes_ -= bytes_;
    }

private:
    std::shared_ptr<Backlog> backlog_;
    std::size_t bytes_ = 0;
};

} // namespace qandor
