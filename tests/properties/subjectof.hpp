// SPDX-License-Identifier: LGPL-2.1-or-later

// What the subjects of all kinds that are written have in common.
#pragma once

#include "properties/logged.hpp"
#include "properties/plainviews.hpp"
#include "properties/subject.hpp"

namespace qandor::test {

template <class Record, class Plain> class SubjectOf : public Subject {
public:
    SubjectOf(Owned<Record> record, Plain plain)
        : record_(std::move(record)), plain_(std::move(plain))
    {
    }

    PlainBytes bytes() const override { return plain_bytes(write(record_.get()).get()); }
    const Record *record() const { return record_.get(); }
    const Plain &plain() const { return plain_; }

protected:
    // Reads what is written, which must be written as it was.
    Owned<Record> reread() const
    {
        Owned<GArray> array = write(record_.get());
        Owned<Record> read_one;
        read(array.get(), read_one);
        require(plain_bytes(write(read_one.get()).get()) == plain_bytes(array.get()),
                "what was read is written as other bytes");
        return read_one;
    }
    void check_bytes() const { require(from_bytes<Plain>(bytes()) == plain_, "bytes"); }
    template <class Print> void check_printed(const Print &print) const
    {
        // In the order in which it is written.
        require_same(lines_of([&] { print(record_.get()); }), printed(from_bytes<Plain>(bytes())),
                     "printed");
    }

    Owned<Record> record_;
    Plain plain_;
};

// A record that the library reads from the plain one's bytes.
template <class Record, class Plain> Owned<Record> read_from(const Plain &plain)
{
    PlainBytes bytes = to_bytes(plain);
    Owned<GArray> array(serialize_create_array());
    serialize_blob(array.get(), bytes.data(), static_cast<guint32>(bytes.size()));
    Owned<Record> record;
    read(array.get(), record);
    return record;
}

// What the plain one is after that.
template <class Plain> Plain reread(const Plain &plain)
{
    return from_bytes<Plain>(to_bytes(plain));
}

} // namespace qandor::test
