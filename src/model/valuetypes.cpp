// SPDX-License-Identifier: LGPL-2.1-or-later

// Value types and their texts, lists of tags, and the pair that fills a property's state key.

#include "model/valuetypes.hpp"

#include "model/callbackparams.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <vector>

using namespace qandor;

ValueText::ValueText(gconstpointer value, guint32 value_type)
{
    switch (value_type) {
    case VALUE_TYPE_INT: {
        auto end =
            std::to_chars(buffer_, buffer_ + sizeof buffer_, *static_cast<const gint *>(value));
        text_ = {buffer_, static_cast<std::size_t>(end.ptr - buffer_)};
        break;
    }
    case VALUE_TYPE_BOOL:
        text_ = *static_cast<const gboolean *>(value) ? "1" : "0";
        break;
    case VALUE_TYPE_DOUBLE:
        text_ =
            g_ascii_formatd(buffer_, sizeof buffer_, "%f", *static_cast<const gdouble *>(value));
        break;
    case VALUE_TYPE_STRING:
        text_ = static_cast<const gchar *>(value);
        break;
    }
}

gchar *event_utils_value_type_to_string(gconstpointer value, guint32 value_type)
{
    ValueText text(value, value_type);
    return text.view().data() ? g_strndup(text.view().data(), text.view().size()) : nullptr;
}

namespace {

std::vector<const gchar *> sorted_texts(GList *list)
{
    std::vector<const gchar *> texts;
    for (GList *link = list; link; link = link->next)
        texts.push_back(static_cast<const gchar *>(link->data));
    std::sort(texts.begin(), texts.end(),
              [](const gchar *one, const gchar *other) { return g_strcmp0(one, other) < 0; });
    return texts;
}

} // namespace

gboolean event_utils_tag_list_is_equal(GList *list1, GList *list2)
{
    std::vector<const gchar *> texts1 = sorted_texts(list1);
    std::vector<const gchar *> texts2 = sorted_texts(list2);
    return std::equal(
        texts1.begin(), texts1.end(), texts2.begin(), texts2.end(),
        [](const gchar *one, const gchar *other) { return g_strcmp0(one, other) == 0; });
}

callback_params *callback_params_new(const gchar *key, const gchar *value)
{
    return new callback_params(key, value);
}

void callback_params_free(callback_params *params)
{
    delete params;
}
