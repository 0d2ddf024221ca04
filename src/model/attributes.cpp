// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/attributes.hpp"

#include <cstring>
#include <new>

namespace qandor {
namespace {

bool are_all_empty(const AttributeTexts &texts)
{
    for (const OptionalText &text : texts)
        if (!text.data() || !text.empty())
            return false;
    return true;
}

} // namespace

// Record and texts stand in one block; each text is terminated, since getters hand it out as it is.
Share<const Attributes> Attributes::make(const AttributeTexts &texts)
{
    if (are_all_empty(texts))
        return {};

    std::size_t size = sizeof(Attributes);
    for (const OptionalText &text : texts)
        size += text.size() + 1;

    auto *block = static_cast<char *>(g_malloc(size));
    auto *attributes = new (block) Attributes();
    char *cursor = block + sizeof(Attributes);
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (!texts[i].data())
            continue;
        std::memcpy(cursor, texts[i].data(), texts[i].size());
        cursor[texts[i].size()] = '\0';
        attributes->texts_[i] = OptionalText(cursor, texts[i].size());
        cursor += texts[i].size() + 1;
    }
    return Share<const Attributes>(attributes);
}

void Attributes::dispose(const Attributes *attributes)
{
    attributes->~Attributes();
    g_free(const_cast<Attributes *>(attributes));
}

} // namespace qandor
