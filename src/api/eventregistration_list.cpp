// SPDX-License-Identifier: LGPL-2.1-or-later

// The register list: the keys and values of a registration, made from both forms in which
// applications give them.

#include "api/eventregistration.hpp"

#include "platform/check.hpp"

using namespace qandor;

namespace {

// Prepends, so that a list of any length takes linear time: the caller reverses it.
GList *prepend_triple(GList *list, const gchar *key, gconstpointer value, guint32 value_type)
{
    CHECK(key != NULL);
    gchar *value_str = event_utils_value_type_to_string(value, value_type);
    CHECK(value_str != NULL);
    list = g_list_prepend(list, g_strdup(key));
    list = g_list_prepend(list, value_str);
    return g_list_prepend(list, GUINT_TO_POINTER(value_type));
}

} // namespace

GList *event_producer_int_parse_register_valist(va_list arguments)
{
    GList *list = nullptr;
    while (const gchar *key = va_arg(arguments, const gchar *)) {
        gconstpointer value = va_arg(arguments, gconstpointer);
        guint32 value_type = va_arg(arguments, guint32);
        list = prepend_triple(list, key, value, value_type);
    }
    return g_list_reverse(list);
}

GList *event_producer_int_convert_to_string_list(GList *triples)
{
    const GList *iter = triples;
    CHECK_TEXT(g_list_length(triples) % 3 == 0, "g_list_length(iter) % 3 == 0");
    GList *list = nullptr;
    while (iter) {
        Triple triple(iter);
        list = prepend_triple(list, triple.key, triple.value, triple.value_type);
        iter = triple.next;
    }
    return g_list_reverse(list);
}

void event_producer_int_free_register_list(GList *register_list)
{
    for (GList *link = register_list; link; link = link->next->next->next) {
        g_free(link->data);
        g_free(link->next->data);
    }
    g_list_free(register_list);
}
