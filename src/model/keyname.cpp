// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/keyname.hpp"

#include <atomic>
#include <cstring>
#include <mutex>

namespace qandor {
namespace {

// Chains are only ever prepended to, under the lock; a reader that misses the newest name takes the
// lock and looks again.
constexpr std::size_t chain_count = 1024;
std::atomic<const KeyName *> chains[chain_count];
std::mutex making;

guint32 hash_of(std::string_view name)
{
    guint64 hash = name.size() * 0x9E3779B97F4A7C15U;
    const char *bytes = name.data();
    std::size_t left = name.size();
    while (left > 0) {
        guint64 word = 0;
        std::size_t step = left < sizeof word ? left : sizeof word;
        std::memcpy(&word, bytes, step);
        hash = (hash ^ word) * 0xFF51AFD7ED558CCDU;
        hash ^= hash >> 32;
        bytes += step;
        left -= step;
    }
    return static_cast<guint32>(hash);
}

const KeyName *find_in_chain(std::string_view name, guint32 hash)
{
    const KeyName *candidate = chains[hash % chain_count].load(std::memory_order_acquire);
    while (candidate && (candidate->hash != hash || candidate->view() != name))
        candidate = candidate->next;
    return candidate;
}

// One block, so that a name is a name's record and its text side by side.
const KeyName *make(std::string_view name, guint32 hash, const KeyName *next)
{
    auto *block = static_cast<char *>(g_malloc(sizeof(KeyName) + name.size() + 1));
    char *text = block + sizeof(KeyName);
    std::memcpy(text, name.data(), name.size());
    text[name.size()] = '\0';
    return new (block) KeyName{text, static_cast<guint32>(name.size()), hash, next};
}

} // namespace

const KeyName *KeyName::find(std::string_view name)
{
    return find_in_chain(name, hash_of(name));
}

const KeyName *KeyName::intern(std::string_view name)
{
    guint32 hash = hash_of(name);
    if (const KeyName *known = find_in_chain(name, hash))
        return known;

    std::lock_guard lock(making);
    if (const KeyName *known = find_in_chain(name, hash))
        return known;
    auto &chain = chains[hash % chain_count];
    const KeyName *made = make(name, hash, chain.load(std::memory_order_relaxed));
    chain.store(made, std::memory_order_release);
    return made;
}

} // namespace qandor
