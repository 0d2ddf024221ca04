// SPDX-License-Identifier: LGPL-2.1-or-later

// The event producer's handle.
#pragma once

#include "messages/event.hpp"
#include "platform/commandsource.hpp"

#include <qandor/eventproducer.h>
#include <qandor/idgenerator.h>

#include <memory>
#include <mutex>
#include <unordered_map>

struct event_producer {
    Producer *producer = nullptr;
    command_source *commands = nullptr;
    idgenerator *idgen = nullptr;
    std::mutex mutex; // guards prepared_events
    std::unordered_map<guint32, std::unique_ptr<event>> prepared_events;
};
