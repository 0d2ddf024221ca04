// SPDX-License-Identifier: LGPL-2.1-or-later

// Records with something wrong in them, the same in each run: cut short, grown, with bytes changed,
// lost, repeated or taken from another record, and with lengths that promise too much.
#pragma once

#include <glib.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace qandor::test {

class Mutations {
public:
    Mutations(std::vector<std::string> seeds, guint32 start)
        : seeds_(std::move(seeds)), dice_(start)
    {
    }

    std::string next()
    {
        std::string bytes = any_seed();
        for (std::size_t left = 1 + below(2); left > 0; --left)
            change(bytes);
        return bytes;
    }

private:
    std::size_t below(std::size_t bound) { return bound == 0 ? 0 : dice_() % bound; }
    const std::string &any_seed() { return seeds_[below(seeds_.size())]; }
    char any_byte()
    {
        // Tags and small counts are more telling than others.
        static constexpr guint8 telling[] = {0,    1,    2,    3,    4,    0x7f, 0x80, 0xf0, 0xf1,
                                             0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf9, 0xfa, 0xff};
        return static_cast<char>(below(2) ? telling[below(sizeof telling)] : dice_());
    }

    void change(std::string &bytes)
    {
        std::size_t place = below(bytes.size());
        std::size_t length = std::min(below(32), bytes.size() - place);
        switch (below(9)) {
        case 0:
            bytes.resize(place);
            break;
        case 1:
            bytes.append(1 + below(8), any_byte());
            break;
        case 2:
            if (!bytes.empty())
                bytes[place] ^= static_cast<char>(1 << below(8));
            break;
        case 3:
            if (!bytes.empty())
                bytes[place] = any_byte();
            break;
        case 4:
            bytes.insert(place, 1, any_byte());
            break;
        case 5:
            bytes.erase(place, length);
            break;
        case 6:
            bytes.insert(place, bytes.substr(place, length));
            break;
        case 7:
            splice(bytes, place, any_seed());
            break;
        case 8:
            bytes.replace(place, std::min<std::size_t>(below(2) ? 2 : 4, length), 4,
                          below(2) ? '\xff' : '\0');
            break;
        }
    }

    static void splice(std::string &bytes, std::size_t place, const std::string &other)
    {
        bytes.resize(place);
        bytes += other.substr(std::min(place, other.size()));
    }

    std::vector<std::string> seeds_;
    std::mt19937 dice_;
};

} // namespace qandor::test
