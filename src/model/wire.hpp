// SPDX-License-Identifier: LGPL-2.1-or-later

// The primitives of the binary form, four times with one interface: one that measures, one that
// writes, one that reads and ends the process on malformed bytes, one that checks and reports them.
// grammar.hpp describes every record on top of that interface, once for all four.
//
// Multi-byte integers are little-endian. A text is a 16-bit length and the bytes without a NUL.
#pragma once

#include "model/shortbytes.hpp"
#include "platform/check.hpp"

#include <qandor/serialize.h>

#include <glib.h>

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace qandor {
struct RecordShape;
}

namespace qandor::wire {

// Bytes that a record refers to without owning them.
struct Blob {
    const guint8 *data = nullptr;
    guint32 size = 0;
};

// Adds up how many bytes a record takes, so that its buffer is made once and large enough.
class Sizer {
public:
    std::size_t size() const { return size_; }

    void tag(serialize_id, const char *) { size_ += 1; }
    guint32 tagged_count(serialize_id, const char *, guint32 count)
    {
        size_ += 3;
        return count;
    }
    guint32 count16(guint32 count)
    {
        size_ += 2;
        return count;
    }
    void bits8(guint32) { size_ += 1; }
    void bits16(guint32) { size_ += 2; }
    void bits32(guint32) { size_ += 4; }
    void signed32(glong) { size_ += 4; }
    void pointer(gconstpointer) { size_ += 4; }
    void text(std::string_view text) { size_ += 2 + text.size(); }
    void blob(const Blob &blob) { size_ += blob.size; }

private:
    std::size_t size_ = 0;
};

// Writes to a place that is known to be large enough.
class Writer {
public:
    explicit Writer(guint8 *cursor) : cursor_(cursor) {}

    void tag(serialize_id id, const char *) { put<guint8>(static_cast<guint8>(id)); }
    guint32 tagged_count(serialize_id id, const char *, guint32 count)
    {
        put<guint8>(static_cast<guint8>(id));
        put<guint16>(GUINT16_TO_LE(static_cast<guint16>(count)));
        return count;
    }
    guint32 count16(guint32 count)
    {
        bits16(count);
        return count;
    }
    void bits8(guint32 value) { put<guint8>(static_cast<guint8>(value)); }
    void bits16(guint32 value) { put<guint16>(GUINT16_TO_LE(static_cast<guint16>(value))); }
    void bits32(guint32 value) { put<guint32>(GUINT32_TO_LE(value)); }
    void signed32(glong value) { bits32(static_cast<guint32>(value)); }
    void pointer(gconstpointer value)
    {
        bits32(static_cast<guint32>(reinterpret_cast<guintptr>(value)));
    }
    // The length is written modulo 65536 while all bytes follow: to keep texts short enough is the
    // duty of whoever makes them.
    void text(std::string_view text)
    {
        const char *string = text.data();
        CHECK(string != NULL);
        bits16(static_cast<guint32>(text.size()));
        put_bytes(string, text.size());
    }
    void blob(const Blob &blob) { put_bytes(blob.data, blob.size); }

private:
    template <class Integer> void put(Integer value)
    {
        std::memcpy(cursor_, &value, sizeof value);
        cursor_ += sizeof value;
    }
    void put_bytes(gconstpointer bytes, std::size_t size)
    {
        copy_bytes(cursor_, bytes, size);
        cursor_ += size;
    }

    guint8 *cursor_;
};

// Reads from a buffer at the caller's index, which has moved past what was read when the reader is
// gone. Whatever does not fit ends the process.
class Reader {
public:
    Reader(GArray *array, guint *indx) : indx_(indx)
    {
        CHECK_TEXT(*indx <= array->len, "array->len >= *indx + size");
        begin_ = reinterpret_cast<const guint8 *>(array->data);
        cursor_ = begin_ + *indx;
        end_ = begin_ + array->len;
    }
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;
    ~Reader() { *indx_ = static_cast<guint>(cursor_ - begin_); }

    // Moves past the next bytes and returns where they stand.
    const guint8 *deserialize_size(std::size_t size)
    {
        CHECK_TEXT(size <= left(), "array->len >= *indx + size");
        const guint8 *bytes = cursor_;
        cursor_ += size;
        return bytes;
    }
    std::string_view deserialize_string()
    {
        std::size_t length = get<guint16>();
        CHECK_TEXT(length <= left(), "array->len >= *indx + length");
        return {reinterpret_cast<const char *>(deserialize_size(length)), length};
    }

    void tag(serialize_id id, const char *expectation)
    {
        CHECK_TEXT(get<guint8>() == static_cast<guint8>(id), expectation);
    }
    guint32 tagged_count(serialize_id id, const char *expectation, guint32)
    {
        guint8 type = get<guint8>();
        guint32 count = get<guint16>();
        CHECK_TEXT(type == static_cast<guint8>(id), expectation);
        return count;
    }
    guint32 count16(guint32) { return get<guint16>(); }
    template <class Field> void bits8(Field &field) { field = static_cast<Field>(get<guint8>()); }
    template <class Field> void bits16(Field &field) { field = static_cast<Field>(get<guint16>()); }
    template <class Field> void bits32(Field &field) { field = static_cast<Field>(get<guint32>()); }
    void signed32(glong &field) { field = static_cast<gint32>(get<guint32>()); }
    void pointer(gpointer &field)
    {
        field = reinterpret_cast<gpointer>(static_cast<guintptr>(get<guint32>()));
    }
    // In C a text ends at its first NUL, whatever its length says.
    void text(std::string_view &field)
    {
        field = deserialize_string();
        if (has_nul(field))
            field = field.substr(0, field.find('\0'));
    }
    void blob(Blob &blob) { blob.data = deserialize_size(blob.size); }

private:
    std::size_t left() const { return static_cast<std::size_t>(end_ - cursor_); }

    template <class Integer> Integer get()
    {
        Integer value;
        std::memcpy(&value, deserialize_size(sizeof value), sizeof value);
        if constexpr (sizeof value == 2)
            return GUINT16_FROM_LE(value);
        else if constexpr (sizeof value == 4)
            return GUINT32_FROM_LE(value);
        else
            return value;
    }

    guint *indx_;
    const guint8 *begin_;
    const guint8 *cursor_;
    const guint8 *end_;
};

// Walks bytes of strangers. The first thing wrong is kept with its place; from then on every field
// reads as 0 or empty and nothing moves.
class Checker {
public:
    Checker(const guint8 *bytes, std::size_t size) : bytes_(bytes), size_(size) {}

    // Where the names of keys are to be noted, each as often as it has a bucket.
    void collect_key_names(std::vector<std::string_view> *names) { key_names_ = names; }
    void note_key_name(std::string_view name)
    {
        if (key_names_)
            key_names_->push_back(name);
    }

    // What the record consists of is counted here.
    void count_into(RecordShape *shape) { shape_ = shape; }
    RecordShape &shape() const { return *shape_; }

    bool failed() const { return !what_.empty(); }
    std::size_t offset() const { return offset_; }
    const std::string &what() const { return what_; }
    bool at_end() const { return offset_ == size_; }

    void fail(const char *what) { fail_at(offset_, what); }
    void fail_at(std::size_t offset, const char *what)
    {
        if (failed())
            return;
        offset_ = offset;
        what_ = what;
    }

    void tag(serialize_id id, const char *)
    {
        std::size_t place = offset_;
        if (get<guint8>() != static_cast<guint8>(id))
            fail_at(place, name_of(id));
    }
    guint32 tagged_count(serialize_id id, const char *, guint32)
    {
        tag(id, nullptr);
        return get<guint16>();
    }
    guint32 count16(guint32) { return get<guint16>(); }
    template <class Field> void bits8(Field &field) { field = static_cast<Field>(get<guint8>()); }
    template <class Field> void bits16(Field &field) { field = static_cast<Field>(get<guint16>()); }
    template <class Field> void bits32(Field &field) { field = static_cast<Field>(get<guint32>()); }
    void signed32(glong &field) { field = static_cast<gint32>(get<guint32>()); }
    void pointer(gpointer &field)
    {
        field = reinterpret_cast<gpointer>(static_cast<guintptr>(get<guint32>()));
    }
    void text(std::string_view &field);
    void blob(Blob &blob)
    {
        blob.data = take(blob.size);
        if (failed())
            blob = {};
    }

private:
    static const char *name_of(serialize_id id);

    const guint8 *take(std::size_t size)
    {
        if (failed())
            return nullptr;
        if (size > size_ - offset_) {
            fail("the bytes end inside a field");
            return nullptr;
        }
        const guint8 *bytes = bytes_ + offset_;
        offset_ += size;
        return bytes;
    }
    template <class Integer> Integer get()
    {
        Integer value = 0;
        const guint8 *bytes = take(sizeof value);
        if (!bytes)
            return 0;
        std::memcpy(&value, bytes, sizeof value);
        if constexpr (sizeof value == 2)
            return GUINT16_FROM_LE(value);
        else if constexpr (sizeof value == 4)
            return GUINT32_FROM_LE(value);
        else
            return value;
    }

    const guint8 *bytes_;
    std::size_t size_;
    std::size_t offset_ = 0;
    std::string what_;
    std::vector<std::string_view> *key_names_ = nullptr;
    RecordShape *shape_ = nullptr;
};

} // namespace qandor::wire
