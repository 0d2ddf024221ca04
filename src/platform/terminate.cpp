// SPDX-License-Identifier: LGPL-2.1-or-later

// No exception leaves the library, so nothing has to be told about one when it ends the process.
// The runtime's own handler would, and bring a fifth of the library's size along for it.

#include <cstdlib>
#include <exception>

namespace __cxxabiv1 {
extern std::terminate_handler __terminate_handler;
std::terminate_handler __terminate_handler = std::abort;
} // namespace __cxxabiv1
