// SPDX-License-Identifier: LGPL-2.1-or-later

/**
 * The owner of a record of the C interface: a value that copies deeply, moves, and frees itself.
 */
#pragma once

#include <glib.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace qandor::detail {

template <class CRecord, auto copy, auto free> class Record {
public:
    /** Takes a record over. */
    explicit Record(CRecord *adopted) : record_(adopted) {}
    Record(const Record &other) : record_(other.record_ ? copy(other.record_.get()) : nullptr) {}
    Record(Record &&) noexcept = default;
    Record &operator=(Record other) noexcept
    {
        std::swap(record_, other.record_);
        return *this;
    }
    ~Record() = default;

    /** The record, for functions of the C interface; it stays owned here. */
    CRecord *c() const { return record_.get(); }

    /** Gives the record away. This object holds nothing afterwards. */
    CRecord *release() { return record_.release(); }

private:
    struct Deleter {
        void operator()(CRecord *record) const { free(record); }
    };
    std::unique_ptr<CRecord, Deleter> record_;
};

/** The strings of a list that belongs to the caller, in their original order. */
inline std::vector<std::string> take_reversed_strings(GList *list)
{
    std::vector<std::string> strings;
    for (GList *link = g_list_last(list); link; link = link->prev)
        strings.emplace_back(static_cast<const char *>(link->data));
    g_list_free_full(list, g_free);
    return strings;
}

} // namespace qandor::detail
