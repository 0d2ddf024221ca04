/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * libqandor: taking part in the events of a device.
 *
 * The conventions of the whole interface:
 *
 * 1. Records are opaque and have functions named by the type and a verb: event_new(), event_copy()
 *    (deep), event_free() (which ignores NULL). Public records are meant to be read.
 * 2. Texts and records given to a function are copied and stay the caller's. Texts and records that
 *    a function returns are borrowed from the object, unless its comment says that they are new:
 *    then the caller frees them, texts with g_free().
 * 3. What a caller can meet in normal operation is a GError, a return value or, where there is
 *    nobody to tell, a warning. A NULL argument where none may stand is a critical that names the
 *    function and the condition, and FALSE, NULL, 0 or -1. Broken invariants and malformed bytes
 *    end the process.
 * 4. Functions of the handles (event_producer, event_consumer, event_query and the async_ forms of
 *    the first two) may be called from any thread. All bus traffic and all callbacks run on the
 *    thread that iterates the default GLib main context: an application has to run it. Handles
 *    outlive restarts of the event switch and of the bus.
 * 5. Records (events, declarations, expressions) may be used from any thread, one at a time; what
 *    only reads may be called from several at once.
 * 6. What a callback is given belongs to the callback where its comment says so, and callbacks must
 *    not wait for the main context.
 * 7. Messages are logged in GLib's default log domain.
 */
#pragma once

#include <qandor/api.h>
#include <qandor/asyncconsumer.h>
#include <qandor/asyncproducer.h>
#include <qandor/busconnection.h>
#include <qandor/consumer.h>
#include <qandor/consumerbusclient.h>
#include <qandor/event.h>
#include <qandor/eventconsumer.h>
#include <qandor/eventdeclaration.h>
#include <qandor/eventproducer.h>
#include <qandor/eventquery.h>
#include <qandor/eventutils.h>
#include <qandor/idgenerator.h>
#include <qandor/inspectable.h>
#include <qandor/keyvalue.h>
#include <qandor/notification.h>
#include <qandor/producer.h>
#include <qandor/propertystate.h>
#include <qandor/query.h>
#include <qandor/serialize.h>
#include <qandor/subscribeexpression.h>
#include <qandor/switchbusclient.h>
