// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/attributes.hpp"

#include "model/shortbytes.hpp"

#include <algorithm>
#include <new>

namespace qandor {
namespace {

// Room for the attributes of a record of common size.
constexpr std::size_t common_block = 1024;

bool are_all_empty(const AttributeTexts &texts)
{
    for (const OptionalText &text : texts)
        if (!text.data() || !text.empty())
            return false;
    return true;
}

// Each text is terminated, since getters hand it out as it is.
std::size_t size_of(const AttributeTexts &texts)
{
    std::size_t size = sizeof(Attributes);
    for (const OptionalText &text : texts)
        size += text.empty() ? 0 : text.size() + 1;
    constexpr std::size_t alignment = alignof(Attributes);
    return (size + alignment - 1) / alignment * alignment;
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

char *AttributesBlock::take(std::size_t size)
{
    if (size > left_)
        return nullptr;
    char *bytes = reinterpret_cast<char *>(this + 1) + used_;
    left_ -= size;
    used_ += size;
    return bytes;
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
    if (are_all_empty(texts))
        return {};
    std::size_t size = size_of(texts);
    AttributesBlock *block = AttributesBlock::make(size);
    return Share<const Attributes>(place(block, block->take(size), texts));
}

Share<const Attributes> Attributes::Maker::make(const AttributeTexts &texts)
{
    if (are_all_empty(texts))
        return {};
    std::size_t size = size_of(texts);
    char *memory = block_ ? block_->take(size) : nullptr;
    if (!memory) {
        block_ = Share<AttributesBlock>(AttributesBlock::make(std::max(size, common_block)));
        memory = block_->take(size);
    }
    block_->retain();
    return Share<const Attributes>(place(block_.get(), memory, texts));
}

} // namespace qandor
