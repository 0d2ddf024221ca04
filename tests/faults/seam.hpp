// SPDX-License-Identifier: LGPL-2.1-or-later

// One fault at the edge of the system: the n-th call of a function that the library or the switch
// makes, or libsystemd for them, fails. The functions of busfunctions.cpp, eventfunctions.cpp and
// systemcalls.cpp stand in front of the real ones; each asks here whether it is its turn.
//
// Calls are counted from arm() on. Nothing here allocates memory before.
#pragma once

#include <dlfcn.h>

#include <cstddef>
#include <map>
#include <string>

namespace qandor::faults {

// Failures that are no errno.
constexpr int short_transfer = -1; // a part of the bytes
constexpr int end_of_file = -2;

struct Fault {
    std::string function;
    int failure = 0; // an errno, or one of the above
    std::size_t number = 0;
};

// Whose calls are counted: those of the program itself, and of libsystemd where a function is
// called there for the program.
enum class Callers { Program, ProgramAndSystemd };

void arm(const Fault &fault);
void disarm();
bool has_struck();
// How often each function has been called.
const std::map<std::string, std::size_t> &counts();

// What a test does itself fails never and is not counted.
class Aside {
public:
    Aside();
    Aside(const Aside &) = delete;
    Aside &operator=(const Aside &) = delete;
    ~Aside();
};

// For the functions that stand in front: the failure of this call, or 0.
int failure_of(const char *function, const void *caller, Callers callers);

// The function that stands behind.
template <class Function> Function *behind(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace qandor::faults
