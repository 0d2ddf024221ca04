// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/keyname.hpp"

#include "model/keyedhash.hpp"

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

const KeyName *find_in_chain(std::string_view name, guint32 hash)
{
    const KeyName *candidate = chains[hash % chain_count].load(std::memory_order_acquire);
    while (candidate && (candidate->hash != hash || !are_same_bytes(candidate->view(), name)))
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
