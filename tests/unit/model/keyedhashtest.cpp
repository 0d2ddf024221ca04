// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/keyedhash.hpp"

#include <gtest/gtest.h>

#include <set>
#include <string>

using namespace qandor;

namespace {

// The example of its authors: key and text are the numbers from 0 up.
TEST(SipHash, GivesWhatItsAuthorsGive)
{
    std::string text;
    for (char i = 0; i < 15; ++i)
        text += i;
    EXPECT_EQ(siphash_2_4(0x0706050403020100U, 0x0F0E0D0C0B0A0908U, text), 0xA129CA6149BE45E5U);
}

TEST(KeyedHash, TheSecretNumbersAreAllDifferent)
{
    std::set<guint64> numbers = {hash_keys.first, hash_keys.of_length, hash_keys.of_long_texts[0],
                                 hash_keys.of_long_texts[1]};
    numbers.insert(hash_keys.of_words.begin(), hash_keys.of_words.end());
    EXPECT_EQ(numbers.size(), 4 + hash_keys.of_words.size());
    EXPECT_FALSE(numbers.contains(0));
}

TEST(KeyedHash, TextsOfEveryLengthAreToldApartByEachOfTheirBytes)
{
    for (std::size_t size = 0; size < 100; ++size) {
        std::set<guint32> hashes;
        std::string text(size, 'a');
        hashes.insert(hash_of(text));
        EXPECT_EQ(hash_of(std::string(text)), hash_of(text));
        for (char &byte : text) {
            byte = 'b';
            hashes.insert(hash_of(text));
            byte = 'a';
        }
        hashes.insert(hash_of(text + '\0'));
        // One in 2^32 would be bad luck.
        EXPECT_GE(hashes.size() + 1, size + 2);
    }
}

// Multiplying by a number that everybody knows, and folding: what it was.
guint64 plain_mix(guint64 hash, guint64 word)
{
    hash = (hash ^ word) * 0xFF51AFD7ED558CCDU;
    return hash ^ (hash >> 32);
}

// 16 bytes whose second half undoes what the first half did, whatever the hash begins with.
TEST(KeyedHash, NobodyCanChooseTextsThatMeet)
{
    std::set<guint32> hashes, plain;
    constexpr guint64 count = 10000;
    for (guint64 i = 0; i < count; ++i) {
        guint64 words[2] = {i, plain_mix(16, i) ^ 42};
        plain.insert(static_cast<guint32>(plain_mix(plain_mix(16, words[0]), words[1])));
        hashes.insert(hash_of({reinterpret_cast<const char *>(words), sizeof words}));
    }
    EXPECT_EQ(plain.size(), 1u);
    EXPECT_GT(hashes.size(), count - 10);
}

} // namespace
