// SPDX-License-Identifier: LGPL-2.1-or-later

// Declaring for commands that send.
#pragma once

#include "cli/mainloop.hpp"

#include <qandor/qandor.hpp>

#include <vector>

namespace qandor::cli {

// Whether a switch takes it: an external one needs a topic.
bool can_be_declared(const Declaration &declaration);

// Declares them all and waits until the switch has made them known. A Failure when it does not in
// time; nothing is declared when the loop is interrupted.
std::vector<Publication> declare_and_wait(EventProducer &producer, MainLoop &loop,
                                          const std::vector<Declaration> &declarations);

} // namespace qandor::cli
