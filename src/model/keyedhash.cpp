// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/keyedhash.hpp"

#include <bit>
#include <sys/auxv.h>

namespace qandor {
namespace {

class SipHash {
public:
    SipHash(guint64 key0, guint64 key1)
        : v0_(key0 ^ 0x736F6D6570736575U), v1_(key1 ^ 0x646F72616E646F6DU),
          v2_(key0 ^ 0x6C7967656E657261U), v3_(key1 ^ 0x7465646279746573U)
    {
    }
    void take(guint64 word)
    {
        v3_ ^= word;
        mix();
        mix();
        v0_ ^= word;
    }
    guint64 end()
    {
        v2_ ^= 0xFF;
        for (int round = 0; round < 4; ++round)
            mix();
        return v0_ ^ v1_ ^ v2_ ^ v3_;
    }

private:
    void mix()
    {
        v0_ += v1_;
        v2_ += v3_;
        v1_ = std::rotl(v1_, 13) ^ v0_;
        v3_ = std::rotl(v3_, 16) ^ v2_;
        v0_ = std::rotl(v0_, 32);
        v0_ += v3_;
        v2_ += v1_;
        v3_ = std::rotl(v3_, 21) ^ v0_;
        v1_ = std::rotl(v1_, 17) ^ v2_;
        v2_ = std::rotl(v2_, 32);
    }

    guint64 v0_, v1_, v2_, v3_;
};

} // namespace

guint64 siphash_2_4(guint64 key0, guint64 key1, std::string_view bytes)
{
    SipHash hash(key0, key1);
    std::string_view rest = bytes;
    for (; rest.size() >= 8; rest.remove_prefix(8))
        hash.take(GUINT64_FROM_LE(load<guint64>(rest.data())));
    guint64 last = static_cast<guint64>(bytes.size()) << 56;
    for (unsigned place = 0; place < rest.size(); ++place)
        last |= static_cast<guint64>(static_cast<guint8>(rest[place])) << 8 * place;
    hash.take(last);
    return hash.end();
}

// The kernel gives every process 16 random bytes at its start: no call that may fail, or that waits
// for randomness while the device boots.
HashKeys::HashKeys()
{
    const auto *random = reinterpret_cast<const char *>(getauxval(AT_RANDOM));
    guint64 count = 0;
    auto draw = [&] {
        ++count;
        std::string_view number(reinterpret_cast<const char *>(&count), sizeof count);
        return siphash_2_4(load<guint64>(random), load<guint64>(random + 8), number);
    };
    first = draw();
    of_length = draw();
    for (guint64 &key : of_words)
        key = draw();
    for (guint64 &key : of_long_texts)
        key = draw();
}

// Other objects may hash texts while they are made.
[[gnu::init_priority(101)]] const HashKeys hash_keys;

guint32 hash_of_long(std::string_view bytes)
{
    return static_cast<guint32>(
        siphash_2_4(hash_keys.of_long_texts[0], hash_keys.of_long_texts[1], bytes));
}

} // namespace qandor
