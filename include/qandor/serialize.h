/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * The serialization buffer: a growing array of bytes that every record of the system is written
 * to and read from.
 *
 * A buffer is a GArray of one-byte elements. Writers append to its end and never touch what is
 * there; readers take a read index that belongs to the caller, begin at it and move it past what
 * they read, so that several records stand one behind another in one buffer. Integers are
 * little-endian, nothing is aligned or padded. docs/wire-format.md describes every record.
 *
 * All preconditions of this family are fatal: a NULL argument or a read past the end of the buffer
 * ends the process. Whoever reads bytes of strangers checks them first.
 *
 * Any thread may use these functions, one at a time for each buffer.
 */
#pragma once

#include <qandor/api.h>

#include <glib.h>

G_BEGIN_DECLS

/** The first byte of every record. 247 and 248 stay unassigned. */
typedef enum {
    SERIALIZE_ID_EVENT_DECLARATION = 240,
    SERIALIZE_ID_EVENT = 241,
    SERIALIZE_ID_INSPECTABLE = 242,
    SERIALIZE_ID_ANDLIST = 243,
    SERIALIZE_ID_BUCKET = 244,
    SERIALIZE_ID_KEYVALUE = 245,
    SERIALIZE_ID_SUBSCRIBE_EXPRESSION = 246,
    SERIALIZE_ID_PROPERTY_STATE = 249,
    SERIALIZE_ID_NOTIFICATION = 250
} serialize_id;

/** Writes one element of a list: the element's data first, the buffer second. */
typedef void (*serialize_function)(gconstpointer data, GArray *array);

/** Reads one element of a list from the buffer, moving the index; returns the new element. */
typedef gpointer (*deserialize_function)(GArray *array, guint *indx);

/** Returns a new empty buffer; the caller frees it with g_array_unref(). */
QANDOR_API GArray *serialize_create_array(void);

/** Appends the low 8 bits of @value. */
QANDOR_API void serialize_8bit(GArray *array, guint32 value);

/** Appends the low 16 bits of @value, 2 bytes little-endian. */
QANDOR_API void serialize_16bit(GArray *array, guint32 value);

/** Appends @value, 4 bytes little-endian. */
QANDOR_API void serialize_32bit(GArray *array, guint32 value);

/**
 * Appends the low 32 bits of the pointer itself, on every machine. What is read back means
 * something to the process that wrote it at most.
 */
QANDOR_API void serialize_pointer(GArray *array, gconstpointer pointer);

/**
 * Appends the length of @string in 16 bits and then its bytes without the NUL. The length is
 * reduced modulo 65536 while all bytes are written: to keep texts below 65536 bytes is the
 * caller's duty. @string must not be NULL.
 */
QANDOR_API void serialize_string(GArray *array, const gchar *string);

/** Appends @length bytes of @data as they are, without a length in front. */
QANDOR_API void serialize_blob(GArray *array, gconstpointer data, guint32 length);

/**
 * Appends the number of elements in 32 bits and then each element by calling @serializer with
 * (element's data, @array), first to last. A NULL list is four zero bytes.
 */
QANDOR_API void serialize_glist(GArray *array, GList *list, serialize_function serializer);

/** Reads one byte. */
QANDOR_API guint32 deserialize_8bit(GArray *array, guint *indx);

/** Reads 2 bytes, zero-extended. */
QANDOR_API guint32 deserialize_16bit(GArray *array, guint *indx);

/** Reads 4 bytes. */
QANDOR_API guint32 deserialize_32bit(GArray *array, guint *indx);

/** Reads 4 bytes as a zero-extended pointer. */
QANDOR_API gpointer deserialize_pointer(GArray *array, guint *indx);

/**
 * Reads a string; returns a new NUL-terminated copy, never NULL, that the caller frees with
 * g_free(). The length is checked before anything is allocated.
 */
QANDOR_API gchar *deserialize_string(GArray *array, guint *indx);

/** Reads @length bytes; returns a new block that the caller frees with g_free(). */
QANDOR_API gpointer deserialize_blob(GArray *array, guint *indx, guint32 length);

/**
 * Reads a list: the count, then as many elements as it says through @deserializer. Returns them in
 * the order read, or NULL for a count of 0. List and elements belong to the caller.
 */
QANDOR_API GList *deserialize_glist(GArray *array, guint *indx, deserialize_function deserializer);

G_END_DECLS
