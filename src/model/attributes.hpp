// SPDX-License-Identifier: LGPL-2.1-or-later

// The texts that a declaration attaches to a key. They hardly ever change and stand in every event
// of the declaration, so all copies of a key-value share one immutable block of them.
#pragma once

#include "model/counted.hpp"

#include <array>
#include <cstddef>
#include <string_view>

namespace qandor {

enum class Attribute : std::size_t {
    NameSpace,
    KeyNiceName,
    ValueNiceName,
    ValueUserString,
    ComplexTypeName
};

// A text that may be absent: data() is NULL then, and only then.
using OptionalText = std::string_view;

inline OptionalText optional_text(const gchar *text)
{
    return text ? OptionalText(text) : OptionalText();
}

using AttributeTexts = std::array<OptionalText, 5>;

class Attributes : public Counted {
public:
    // Returns nothing when all texts are empty, as they mostly are.
    static Share<const Attributes> make(const AttributeTexts &texts);
    static void dispose(const Attributes *attributes);

    OptionalText get(Attribute which) const { return texts_[static_cast<std::size_t>(which)]; }
    const AttributeTexts &texts() const { return texts_; }

private:
    Attributes() = default;
    AttributeTexts texts_;
};

} // namespace qandor
