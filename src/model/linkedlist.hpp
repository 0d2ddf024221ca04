// SPDX-License-Identifier: LGPL-2.1-or-later

// A list of records that hold their own links, as members next and previous: a record is taken out
// without looking for it. The list owns nothing.
#pragma once

namespace qandor {

template <class Record> class LinkedList {
public:
    bool empty() const { return !first_; }
    Record *first() const { return first_; }
    Record *last() const { return first_ ? first_->previous : nullptr; }

    void append(Record &record)
    {
        Record *last = first_ ? first_->previous : &record;
        last->next = &record;
        record.previous = last;
        record.next = nullptr;
        if (!first_)
            first_ = &record;
        first_->previous = &record;
    }

    void remove(Record &record)
    {
        Record *last = first_->previous;
        if (&record == first_)
            first_ = record.next;
        else
            record.previous->next = record.next;
        if (record.next)
            record.next->previous = record.previous;
        else
            last = record.previous;
        if (first_)
            first_->previous = last;
    }

private:
    Record *first_ = nullptr; // its previous is the last one, whose next is NULL
};

} // namespace qandor
