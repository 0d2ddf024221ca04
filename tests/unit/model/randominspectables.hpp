// SPDX-License-Identifier: LGPL-2.1-or-later

// Random inspectables over a small alphabet, so that they meet often. They may hold everything that
// can come off the wire: several key-values of one key in any type, negated ones, name spaces.
#pragma once

#include "model/inspectable.hpp"

#include <memory>
#include <random>
#include <string>

namespace qandor::test {

// Of the numbers that stand for a chance, so many in a hundred.
struct Variety {
    const char *name;
    unsigned keys = 4;
    unsigned values = 3;
    unsigned conditions = 4; // at most, of an and-list
    unsigned alternatives = 1;
    unsigned negated = 0;
    unsigned open = 0; // any value
    unsigned any_key = 0;
    unsigned in_name_space = 0;
    unsigned repeated = 0; // of a key that is already there
};

class RandomInspectables {
public:
    explicit RandomInspectables(unsigned seed) : engine_(seed) {}

    unsigned number(unsigned limit) { return static_cast<unsigned>(engine_() % limit); }
    bool happens(unsigned chance) { return number(100) < chance; }

    std::unique_ptr<inspectable> make(guint32 type, const Variety &variety)
    {
        auto made = std::make_unique<inspectable>(inspectable::Unread());
        made->type = type;
        for (unsigned left = 1 + number(variety.alternatives); left > 0; --left)
            fill(made->and_lists.add(), variety);
        return made;
    }

private:
    void fill(AndList &list, const Variety &variety)
    {
        const KeyName *last = nullptr;
        for (unsigned left = number(variety.conditions + 1); left > 0; --left) {
            key_value made = make_one(variety);
            if (last && !made.key_wildcard && happens(variety.repeated))
                made.key = last;
            if (!made.key_wildcard && list.find(made.key) && !happens(variety.repeated))
                continue;
            last = made.key_wildcard ? last : made.key;
            list.add(std::move(made));
        }
    }

    key_value make_one(const Variety &variety)
    {
        bool any_key = happens(variety.any_key);
        bool open = !any_key && happens(variety.open);
        unsigned key = number(variety.keys);
        std::string name = any_key ? "" : key == 0 ? "topic0" : "key" + std::to_string(key);
        std::string value = open ? "" : std::to_string(number(variety.values));
        key_value made(KeyName::intern(name), any_key, value, open, happens(variety.negated));
        if (happens(variety.in_name_space))
            made.set_attribute(Attribute::NameSpace, number(2) ? "m" : "n");
        return made;
    }

    std::mt19937 engine_;
};

} // namespace qandor::test
