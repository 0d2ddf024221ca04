// SPDX-License-Identifier: LGPL-2.1-or-later

// The texts that a declaration attaches to a key. They hardly ever change and stand in every event
// of the declaration, so all copies of a key-value share them, immutable. Those of all keys of a
// record that is read come to stand in one block, which lives as long as any of them.
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

// The memory of some attributes, as many as fit.
class AttributesBlock : public Counted {
public:
    static AttributesBlock *make(std::size_t size);
    static void dispose(AttributesBlock *block);

    // The next bytes of the block, or NULL when so many are not left.
    char *take(std::size_t size)
    {
        if (size > left_)
            return nullptr;
        char *bytes = reinterpret_cast<char *>(this + 1) + used_;
        left_ -= size;
        used_ += size;
        return bytes;
    }

    // With what is not taken yet.
    std::size_t size() const { return sizeof *this + left_ + used_; }

private:
    explicit AttributesBlock(std::size_t size) : left_(size) {}

    std::size_t left_;
    std::size_t used_ = 0;
};

class Attributes {
public:
    // Returns nothing when all texts are empty, as they mostly are.
    static Share<const Attributes> make(const AttributeTexts &texts);

    // The same for the keys of one record that is read, one after another. No text is absent, and
    // they stand in the record in this order, each with other bytes behind it.
    class Maker {
    public:
        Share<const Attributes> make(const AttributeTexts &texts)
        {
            std::size_t length = 0;
            for (const OptionalText &text : texts)
                length += text.size();
            return length == 0 ? Share<const Attributes>() : copy(texts);
        }

    private:
        Share<const Attributes> copy(const AttributeTexts &texts);

        Share<AttributesBlock> block_;
    };

    void retain() const { block_->retain(); }
    bool release() const { return block_->release(); }
    static void dispose(const Attributes *attributes)
    {
        AttributesBlock::dispose(attributes->block_);
    }

    const AttributesBlock &block() const { return *block_; }
    OptionalText get(Attribute which) const { return texts_[static_cast<std::size_t>(which)]; }

private:
    static const Attributes *place(AttributesBlock *block, char *memory,
                                   const AttributeTexts &texts);

    explicit Attributes(AttributesBlock *block) : block_(block) {}

    AttributesBlock *block_;
    AttributeTexts texts_;
};

} // namespace qandor
