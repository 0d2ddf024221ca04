// SPDX-License-Identifier: LGPL-2.1-or-later

// Checks that name the function they stand in as C does. GLib's own macros would print the whole
// C++ signature. CHECK ends the process; RETURN_IF_FAIL logs a critical and returns. Both stay in
// every build. In a lambda the function's name is "operator()": check before it.
//
// CHECK_TEXT is for conditions that read differently from what they say in words.
#pragma once

#include <glib.h>

#define CHECK_TEXT(condition, text)                                                                \
    do {                                                                                           \
        if (G_UNLIKELY(!(condition)))                                                              \
            g_assertion_message_expr(nullptr, __FILE__, __LINE__, __func__, text);                 \
    } while (0)

#define CHECK(condition) CHECK_TEXT(condition, #condition)

#define CHECK_NOT_REACHED() g_assertion_message_expr(nullptr, __FILE__, __LINE__, __func__, nullptr)

#define RETURN_IF_FAIL(condition)                                                                  \
    do {                                                                                           \
        if (G_UNLIKELY(!(condition))) {                                                            \
            g_return_if_fail_warning(nullptr, __func__, #condition);                               \
            return;                                                                                \
        }                                                                                          \
    } while (0)

#define RETURN_VALUE_IF_FAIL(condition, value)                                                     \
    do {                                                                                           \
        if (G_UNLIKELY(!(condition))) {                                                            \
            g_return_if_fail_warning(nullptr, __func__, #condition);                               \
            return value;                                                                          \
        }                                                                                          \
    } while (0)
