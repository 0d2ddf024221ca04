// SPDX-License-Identifier: LGPL-2.1-or-later

// What chance decides, the same for the same seed everywhere.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

namespace qandor::simulation {

// SplitMix64 (Steele, Lea, Flood 2014).
class Random {
public:
    // The sequences of neighbouring seeds must not be one another's: begins with what is drawn.
    explicit Random(std::uint64_t seed) : state_(seed) { state_ = next() ^ (next() << 1); }

    std::uint64_t next()
    {
        std::uint64_t bits = state_ += 0x9E3779B97F4A7C15U;
        bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9U;
        bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EBU;
        return bits ^ (bits >> 31);
    }
    // 0 to count - 1.
    std::size_t below(std::size_t count) { return static_cast<std::size_t>(next() % count); }
    bool one_in(std::size_t count) { return below(count) == 0; }
    template <class Things> auto &pick(Things &things)
    {
        auto at = things.begin();
        std::advance(at, static_cast<std::ptrdiff_t>(below(things.size())));
        return *at;
    }

private:
    std::uint64_t state_;
};

} // namespace qandor::simulation
