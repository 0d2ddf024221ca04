/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * Numbers for declarations and subscriptions: 1, 2, 3 and so on. Any thread may use a generator.
 */
#pragma once

#include <qandor/api.h>

#include <glib.h>

G_BEGIN_DECLS

typedef struct idgenerator idgenerator;

/** Returns a new generator, whose first id is 1. */
QANDOR_API idgenerator *idgenerator_new(void);

/** Frees the generator; NULL is ignored. */
QANDOR_API void idgenerator_free(idgenerator *idgen);

/**
 * Returns the next id, never 0. Each is given out once until all 4294967295 have been; then it
 * begins again with 1. NULL is fatal.
 */
QANDOR_API guint32 idgenerator_reserve(idgenerator *idgen);

/**
 * Tells that an id is not used any more. It is not given out again before all others have been.
 * Any id may be released, also one that was never reserved. NULL is fatal.
 */
QANDOR_API void idgenerator_release(idgenerator *idgen, guint32 id);

G_END_DECLS
