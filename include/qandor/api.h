/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * The mark of what the library exports. Everything else in it is hidden.
 */
#pragma once

#include <glib.h>

#define QANDOR_API __attribute__((visibility("default")))
