// SPDX-License-Identifier: LGPL-2.1-or-later

// Owners of the library's records, and bytes as tests want to see them.
#pragma once

#include <qandor/qandor.h>

#include <memory>
#include <string>
#include <vector>

namespace qandor::test {

struct RecordDeleter {
    void operator()(event *record) const { event_free(record); }
    void operator()(event_declaration *record) const { event_declaration_free(record); }
    void operator()(subscribe_expression *record) const { subscribe_expression_free(record); }
    void operator()(notification *record) const { notification_free(record); }
    void operator()(property_state *record) const { property_state_free(record); }
    void operator()(inspectable *record) const { inspectable_free(record); }
    void operator()(key_value *record) const { key_value_free(record); }
    void operator()(GArray *array) const { g_array_unref(array); }
    void operator()(gchar *text) const { g_free(text); }
    void operator()(GError *error) const { g_error_free(error); }
};
template <class Record> using Owned = std::unique_ptr<Record, RecordDeleter>;

using Bytes = std::vector<int>;

inline Bytes bytes_of(const GArray *array)
{
    const auto *data = reinterpret_cast<const guint8 *>(array->data);
    return Bytes(data, data + array->len);
}

inline Owned<GArray> array_of(const Bytes &bytes)
{
    Owned<GArray> array(serialize_create_array());
    for (int byte : bytes)
        serialize_8bit(array.get(), static_cast<guint32>(byte));
    return array;
}

inline std::vector<std::string> take_strings(GList *list)
{
    std::vector<std::string> strings;
    for (GList *link = list; link; link = link->next)
        strings.emplace_back(static_cast<const char *>(link->data));
    g_list_free_full(list, g_free);
    return strings;
}

} // namespace qandor::test
