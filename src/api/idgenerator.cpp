// SPDX-License-Identifier: LGPL-2.1-or-later

#include "platform/check.hpp"

#include <qandor/idgenerator.h>

#include <mutex>

// Ids are not reused before the counter has come round, so there is nothing to remember of those in
// use: a released id may still be on its way in a message.
struct idgenerator {
    std::mutex mutex;
    guint32 last = 0;
};

idgenerator *idgenerator_new(void)
{
    return new idgenerator();
}

void idgenerator_free(idgenerator *idgen)
{
    delete idgen;
}

guint32 idgenerator_reserve(idgenerator *idgen)
{
    CHECK(idgen != NULL);
    std::lock_guard lock(idgen->mutex);
    if (++idgen->last == 0)
        ++idgen->last;
    return idgen->last;
}

void idgenerator_release(idgenerator *idgen, guint32)
{
    CHECK(idgen != NULL);
}
