// SPDX-License-Identifier: LGPL-2.1-or-later

// Inspectables for people and other code: the plain view and the log lines.

#include "model/inspectable.hpp"

#include "platform/check.hpp"
#include "platform/log.hpp"

using namespace qandor;

namespace {

// Everything comes out in reverse order: the view is built by prepending.
GList *prepend_raw(GList *raw, Buckets buckets)
{
    for (Bucket bucket : buckets)
        for (const key_value &key_value : bucket)
            raw = g_list_prepend(raw, key_value_get_raw(&key_value));
    return raw;
}

void free_raw_and_list(gpointer raw)
{
    g_list_free_full(static_cast<GList *>(raw), [](gpointer key_value) {
        key_value_free_raw(static_cast<key_value_raw *>(key_value));
    });
}

void print_buckets(Buckets buckets)
{
    for (Bucket bucket : buckets)
        for (const key_value &key_value : bucket)
            key_value_print(&key_value);
}

} // namespace

GList *inspectable_get_raw(const inspectable *inspect)
{
    CHECK(inspect != NULL);
    GList *raw = nullptr;
    for (const AndList &list : inspect->and_lists)
        raw =
            g_list_prepend(raw, prepend_raw(prepend_raw(nullptr, list.keyed()), list.wildcards()));
    return raw;
}

void inspectable_free_raw(GList *raw)
{
    g_list_free_full(raw, free_raw_and_list);
}

void inspectable_print(const inspectable *inspect)
{
    CHECK(inspect != NULL);
    bool is_first = true;
    for (const AndList &list : inspect->and_lists) {
        if (!is_first)
            log_message("%s", "OR");
        is_first = false;
        print_buckets(list.keyed());
        print_buckets(list.wildcards());
    }
    for (const std::string &tag : inspect->tags)
        log_message("{%s}", tag.c_str());
}
