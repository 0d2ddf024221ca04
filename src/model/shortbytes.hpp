// SPDX-License-Identifier: LGPL-2.1-or-later

// Copying, comparing and searching of texts that are mostly short: without a call, by words
// that may overlap.
#pragma once

#include <glib.h>

#include <cstring>
#include <string_view>

namespace qandor {

template <class Word> Word load(const void *from)
{
    Word word;
    std::memcpy(&word, from, sizeof word);
    return word;
}

template <class Word> void store(void *to, Word word)
{
    std::memcpy(to, &word, sizeof word);
}

inline void copy_bytes(void *to, const void *from, std::size_t size)
{
    auto *target = static_cast<char *>(to);
    const auto *source = static_cast<const char *>(from);
    if (size > 16) {
        std::memcpy(target, source, size);
    } else if (size >= 8) {
        auto tail = load<guint64>(source + size - 8);
        store(target, load<guint64>(source));
        store(target + size - 8, tail);
    } else if (size >= 4) {
        auto tail = load<guint32>(source + size - 4);
        store(target, load<guint32>(source));
        store(target + size - 4, tail);
    } else if (size > 0) {
        target[0] = source[0];
        target[size / 2] = source[size / 2];
        target[size - 1] = source[size - 1];
    }
}

inline bool are_same_bytes(std::string_view one, std::string_view other)
{
    std::size_t size = one.size();
    if (size != other.size())
        return false;
    const char *bytes1 = one.data();
    const char *bytes2 = other.data();
    if (size > 16)
        return std::memcmp(bytes1, bytes2, size) == 0;
    if (size >= 8)
        return load<guint64>(bytes1) == load<guint64>(bytes2) &&
               load<guint64>(bytes1 + size - 8) == load<guint64>(bytes2 + size - 8);
    if (size >= 4)
        return load<guint32>(bytes1) == load<guint32>(bytes2) &&
               load<guint32>(bytes1 + size - 4) == load<guint32>(bytes2 + size - 4);
    return size == 0 || (bytes1[0] == bytes2[0] && bytes1[size / 2] == bytes2[size / 2] &&
                         bytes1[size - 1] == bytes2[size - 1]);
}

inline bool has_zero_byte(guint64 word)
{
    return ((word - 0x0101010101010101U) & ~word & 0x8080808080808080U) != 0;
}

inline bool has_nul(std::string_view bytes)
{
    std::size_t size = bytes.size();
    const char *begin = bytes.data();
    if (size == 0)
        return false;
    if (size > 16)
        return std::memchr(begin, 0, size) != nullptr;
    if (size >= 8)
        return has_zero_byte(load<guint64>(begin)) ||
               has_zero_byte(load<guint64>(begin + size - 8));
    if (size >= 4)
        return has_zero_byte(load<guint32>(begin) |
                             static_cast<guint64>(load<guint32>(begin + size - 4)) << 32);
    return !begin[0] || !begin[size / 2] || !begin[size - 1];
}

} // namespace qandor
