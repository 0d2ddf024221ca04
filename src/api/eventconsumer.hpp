// SPDX-License-Identifier: LGPL-2.1-or-later

// The event consumer's handle.
#pragma once

#include "platform/commandsource.hpp"

#include <qandor/eventconsumer.h>
#include <qandor/idgenerator.h>

struct event_consumer {
    Consumer *consumer = nullptr;
    command_source *commands = nullptr;
    idgenerator *idgen = nullptr;
};
