// SPDX-License-Identifier: LGPL-2.1-or-later

// The hash of texts that strangers write. It depends on numbers that each process draws for itself,
// so nobody outside can choose texts that fall into one chain.
//
// Short texts, as nearly all are, are a sum of products: each of their 32-bit words, and the
// length, times a secret number of 64 bits; the upper half is the hash. Whatever two texts are
// chosen, the chance that they meet is one in 2^32. Long ones would need as many secret numbers as
// words and go through SipHash.
#pragma once

#include "model/shortbytes.hpp"

#include <array>

namespace qandor {

guint64 siphash_2_4(guint64 key0, guint64 key1, std::string_view bytes);

struct HashKeys {
    static constexpr std::size_t short_size = 32;

    HashKeys();

    guint64 first = 0;
    guint64 of_length = 0;
    std::array<guint64, short_size / 4> of_words{};
    std::array<guint64, 2> of_long_texts{};
};

// Made before all other objects of the program.
extern const HashKeys hash_keys;

guint32 hash_of_long(std::string_view bytes);

// Words may overlap: with the length they still tell every text from every other.
inline guint32 hash_of(std::string_view bytes)
{
    std::size_t size = bytes.size();
    if (size > HashKeys::short_size)
        return hash_of_long(bytes);
    const char *at = bytes.data();
    guint64 sum = hash_keys.first + hash_keys.of_length * size;
    auto take = [&sum](std::size_t place, guint64 word) {
        sum += hash_keys.of_words[2 * place] * static_cast<guint32>(word) +
               hash_keys.of_words[2 * place + 1] * (word >> 32);
    };
    if (size < 8) {
        guint64 word = 0;
        copy_bytes(&word, at, size);
        take(0, word);
        return static_cast<guint32>(sum >> 32);
    }
    take(0, load<guint64>(at));
    take(1, load<guint64>(at + size - 8));
    if (size > 16) {
        take(2, load<guint64>(at + 8));
        take(3, load<guint64>(at + size - 16));
    }
    return static_cast<guint32>(sum >> 32);
}

// For the tables of the standard library.
struct TextHash {
    std::size_t operator()(std::string_view text) const { return hash_of(text); }
};

} // namespace qandor
