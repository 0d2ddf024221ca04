// SPDX-License-Identifier: LGPL-2.1-or-later

// The primitives of the binary form as exported functions, one value at a time.

#include <qandor/serialize.h>

#include "model/serialize.hpp"
#include "model/wire.hpp"

using qandor::wire::Reader;

namespace {

template <class Integer> void append(GArray *array, Integer value)
{
    g_array_append_vals(array, &value, sizeof value);
}

} // namespace

guint8 *qandor::grow(GArray *array, std::size_t size)
{
    CHECK(array != NULL);
    guint length = array->len;
    CHECK_TEXT(size <= G_MAXUINT - length, "array->len + size <= G_MAXUINT");
    g_array_set_size(array, length + static_cast<guint>(size));
    return reinterpret_cast<guint8 *>(array->data) + length;
}

GArray *serialize_create_array(void)
{
    return g_array_new(FALSE, FALSE, 1);
}

void serialize_8bit(GArray *array, guint32 value)
{
    CHECK(array != NULL);
    append(array, static_cast<guint8>(value));
}

void serialize_16bit(GArray *array, guint32 value)
{
    CHECK(array != NULL);
    append(array, GUINT16_TO_LE(static_cast<guint16>(value)));
}

void serialize_32bit(GArray *array, guint32 value)
{
    CHECK(array != NULL);
    append(array, GUINT32_TO_LE(value));
}

void serialize_pointer(GArray *array, gconstpointer pointer)
{
    CHECK(array != NULL);
    append(array, GUINT32_TO_LE(static_cast<guint32>(reinterpret_cast<guintptr>(pointer))));
}

void serialize_string(GArray *array, const gchar *string)
{
    CHECK(array != NULL);
    CHECK(string != NULL);
    std::size_t length = std::strlen(string);
    serialize_16bit(array, static_cast<guint32>(length));
    g_array_append_vals(array, string, static_cast<guint>(length));
}

void serialize_blob(GArray *array, gconstpointer data, guint32 length)
{
    CHECK(array != NULL);
    g_array_append_vals(array, data, length);
}

void serialize_glist(GArray *array, GList *list, serialize_function serializer)
{
    CHECK(array != NULL);
    CHECK(serializer != NULL);
    serialize_32bit(array, g_list_length(list));
    for (GList *link = list; link; link = link->next)
        serializer(link->data, array);
}

guint32 deserialize_8bit(GArray *array, guint *indx)
{
    CHECK(array != NULL);
    guint32 value;
    Reader(array, indx).bits8(value);
    return value;
}

guint32 deserialize_16bit(GArray *array, guint *indx)
{
    CHECK(array != NULL);
    guint32 value;
    Reader(array, indx).bits16(value);
    return value;
}

guint32 deserialize_32bit(GArray *array, guint *indx)
{
    CHECK(array != NULL);
    guint32 value;
    Reader(array, indx).bits32(value);
    return value;
}

gpointer deserialize_pointer(GArray *array, guint *indx)
{
    CHECK(array != NULL);
    gpointer value;
    Reader(array, indx).pointer(value);
    return value;
}

gchar *deserialize_string(GArray *array, guint *indx)
{
    CHECK(array != NULL);
    std::string_view text = Reader(array, indx).deserialize_string();
    auto *copy = static_cast<gchar *>(g_malloc(text.size() + 1));
    qandor::copy_bytes(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

gpointer deserialize_blob(GArray *array, guint *indx, guint32 length)
{
    CHECK(array != NULL);
    return g_memdup2(Reader(array, indx).deserialize_size(length), length);
}

GList *deserialize_glist(GArray *array, guint *indx, deserialize_function deserializer)
{
    CHECK(array != NULL);
    CHECK(indx != NULL);
    CHECK(deserializer != NULL);
    guint32 count = deserialize_32bit(array, indx);
    // Built back to front, so that a long list does not walk itself for every element.
    GList *list = nullptr;
    for (guint32 i = 0; i < count; ++i)
        list = g_list_prepend(list, deserializer(array, indx));
    return g_list_reverse(list);
}
