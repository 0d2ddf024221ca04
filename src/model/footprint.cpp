// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/footprint.hpp"

#include "model/declarationindex.hpp"
#include "model/expressionindex.hpp"
#include "model/inspectable.hpp"

#include <algorithm>

namespace qandor {
namespace {

std::size_t text_size(const std::string &text)
{
    static const std::size_t inside = std::string().capacity();
    return text.capacity() > inside ? block_size(text.capacity() + 1) : 0;
}

template <class Element> std::size_t array_size(const std::vector<Element> &array)
{
    return block_size(array.capacity() * sizeof(Element));
}

std::size_t texts_size(const std::vector<std::string> &texts)
{
    std::size_t size = array_size(texts);
    for (const std::string &text : texts)
        size += text_size(text);
    return size;
}

// A node links to the next one, and holds the hash of a text beside it.
template <class Table> std::size_t table_size(const Table &table)
{
    struct Node {
        void *next;
        typename Table::value_type content;
        std::size_t hash;
    };
    return block_size(table.bucket_count() * sizeof(void *)) +
           table.size() * block_size(sizeof(Node));
}

} // namespace

// Adds up the blocks of a record.
class Footprint {
public:
    void add(const inspectable &inspect)
    {
        size_ += block_size(sizeof inspect) + texts_size(inspect.tags);
        size_ += array_size(inspect.and_lists.more_);
        for (const AndList &list : inspect.and_lists)
            add(list);
    }
    std::size_t size() const { return size_; }

private:
    void add(const AndList &list)
    {
        size_ += array_size(list.keyed_) + array_size(list.wildcards_);
        size_ += array_size(list.more_key_values_);
        add(list.key_values_);
        for (const auto &more : list.more_key_values_)
            add(more);
        if (list.places_)
            size_ += block_size(sizeof *list.places_) + table_size(list.places_->keyed) +
                     table_size(list.places_->wildcards);
    }
    void add(const std::vector<key_value> &key_values)
    {
        size_ += array_size(key_values);
        for (const key_value &key_value : key_values) {
            size_ += text_size(key_value.value);
            if (key_value.attributes)
                add(key_value.attributes->block());
            if (key_value.tags)
                add(*key_value.tags);
        }
    }
    // Those of a record that was read stand in few blocks, one after another.
    void add(const AttributesBlock &block)
    {
        if (&block == last_block_)
            return;
        last_block_ = &block;
        size_ += block_size(block.size());
    }
    void add(const TagList &list)
    {
        size_ += block_size(sizeof list) + texts_size(list.tags_) + table_size(list.known_);
        for (const std::string &tag : list.known_)
            size_ += text_size(tag);
    }

    std::size_t size_ = 0;
    const AttributesBlock *last_block_ = nullptr;
};

// As the GNU library does it: a word in front, in steps of its alignment, two at least. Large
// blocks are pages of their own.
std::size_t block_size(std::size_t bytes)
{
    if (bytes == 0)
        return 0;
    constexpr std::size_t word = sizeof(std::size_t), step = alignof(std::max_align_t);
    constexpr std::size_t page = 4096;
    constexpr std::size_t large = 128 * 1024;
    if (bytes >= large)
        return (bytes + step + page - 1) / page * page;
    return std::max((bytes + word + step - 1) / step * step, 2 * step);
}

std::size_t memory_of_record(const inspectable &inspect)
{
    Footprint footprint;
    footprint.add(inspect);
    return footprint.size();
}

std::size_t memory_of(const inspectable &inspect)
{
    std::size_t size = memory_of_record(inspect);
    if (inspect.type == IT_SUBSCRIBE_EXPRESSION)
        size += ExpressionIndex::most_memory_for(inspect);
    if (inspect.type == IT_EVENT_DECLARATION)
        size += DeclarationIndex::most_memory_for(inspect);
    return size;
}

} // namespace qandor
