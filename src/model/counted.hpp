// SPDX-License-Identifier: LGPL-2.1-or-later

// What copies of a record share instead of copying: immutable parts with a count of their owners.
// Copies travel between threads, so the count is atomic; the parts are changed by a sole owner
// only.
#pragma once

#include <glib.h>

#include <atomic>
#include <utility>

namespace qandor {

class Counted {
public:
    Counted() = default;
    Counted(const Counted &) : owners_(1) {}
    Counted &operator=(const Counted &) = delete;

    void retain() const { owners_.fetch_add(1, std::memory_order_relaxed); }
    bool release() const { return owners_.fetch_sub(1, std::memory_order_acq_rel) == 1; }
    bool has_sole_owner() const { return owners_.load(std::memory_order_acquire) == 1; }

private:
    mutable std::atomic<guint> owners_{1};
};

// An owner of a Part, or of nothing. A Part is destroyed by its static dispose().
template <class Part> class Share {
public:
    Share() = default;
    explicit Share(Part *adopted) : part_(adopted) {}
    Share(const Share &other) : part_(other.part_)
    {
        if (part_)
            part_->retain();
    }
    Share(Share &&other) noexcept : part_(std::exchange(other.part_, nullptr)) {}
    Share &operator=(Share other) noexcept
    {
        std::swap(part_, other.part_);
        return *this;
    }
    ~Share()
    {
        if (part_ && part_->release())
            Part::dispose(part_);
    }

    Part *get() const { return part_; }
    Part *operator->() const { return part_; }
    Part &operator*() const { return *part_; }
    explicit operator bool() const { return part_ != nullptr; }

private:
    Part *part_ = nullptr;
};

} // namespace qandor
