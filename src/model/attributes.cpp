// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/attributes.hpp"

#include "model/shortbytes.hpp"

#include <algorithm>
#include <cstring>
#include <new>

namespace qandor {
namespace {

// Room for the attributes of a record of common size.
constexpr std::size_t common_block = 1024;

// The bytes of all texts together; each is terminated besides, since getters hand it out as it is.
std::size_t length_of(const AttributeTexts &texts)
{
    std::size_t length = 0;
    for (const OptionalText &text : texts)
        length += text.size();
    return length;
}

std::size_t size_for(std::size_t length)
{
    constexpr std::size_t alignment = alignof(Attributes);
    std::size_t size = sizeof(Attributes) + length + std::tuple_size_v<AttributeTexts>;
    return (size + alignment - 1) / alignment * alignment;
}

bool has_absent_text(const AttributeTexts &texts)
{
    return std::any_of(texts.begin(), texts.end(),
                       [](const OptionalText &text) { return !text.data(); });
}

} // namespace

AttributesBlock *AttributesBlock::make(std::size_t size)
{
    return new (g_malloc(sizeof(AttributesBlock) + size)) AttributesBlock(size);
}

void AttributesBlock::dispose(AttributesBlock *block)
{
    g_free(block);
}

const Attributes *Attributes::place(AttributesBlock *block, char *memory,
                                    const AttributeTexts &texts)
{
    auto *attributes = new (memory) Attributes(block);
    char *cursor = memory + sizeof(Attributes);
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const OptionalText &text = texts[i];
        if (text.empty()) {
            attributes->texts_[i] = text.data() ? OptionalText("") : OptionalText();
            continue;
        }
        copy_bytes(cursor, text.data(), text.size());
        cursor[text.size()] = '\0';
        attributes->texts_[i] = OptionalText(cursor, text.size());
        cursor += text.size() + 1;
    }
    return attributes;
}

Share<const Attributes> Attributes::make(const AttributeTexts &texts)
{
    std::size_t length = length_of(texts);
    if (length == 0 && !has_absent_text(texts))
        return {};
    std::size_t size = size_for(length);
    AttributesBlock *block = AttributesBlock::make(size);
    return Share<const Attributes>(place(block, block->take(size), texts));
}

// The bytes of the record are copied as they are, with what stands between the texts, and each text
// is terminated where something else followed it.
Share<const Attributes> Attributes::Maker::copy(const AttributeTexts &texts)
{
    const char *begin = texts.front().data();
    std::size_t length =
        static_cast<std::size_t>(texts.back().data() - begin) + texts.back().size();
    std::size_t size = size_for(length);
    char *memory = block_ ? block_->take(size) : nullptr;
    if (!memory) {
        block_ = Share<AttributesBlock>(AttributesBlock::make(std::max(size, common_block)));
        memory = block_->take(size);
    }
    block_->retain();

    auto *attributes = new (memory) Attributes(block_.get());
    char *copied = memory + sizeof(Attributes);
    std::memcpy(copied, begin, length);
    for (std::size_t i = 0; i < texts.size(); ++i) {
        char *text = copied + (texts[i].data() - begin);
        text[texts[i].size()] = '\0';
        attributes->texts_[i] = OptionalText(text, texts[i].size());
    }
    return Share<const Attributes>(attributes);
}

} // namespace qandor
