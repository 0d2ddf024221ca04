// SPDX-License-Identifier: LGPL-2.1-or-later

#include "seam.hpp"

#include <cstdint>
#include <cstring>
#include <link.h>

namespace qandor::faults {
namespace {

// Where a program or a library lies in memory.
struct Range {
    std::uintptr_t begin = 0, end = 0;
    bool contains(const void *place) const
    {
        auto address = reinterpret_cast<std::uintptr_t>(place);
        return begin <= address && address < end;
    }
};

struct Seam {
    Fault fault;
    std::map<std::string, std::size_t> counts;
    Range program, systemd;
    bool has_struck = false;
};

Seam *armed = nullptr;
int asides = 0;

Range range_of(const dl_phdr_info &object)
{
    Range range{UINTPTR_MAX, 0};
    for (int i = 0; i < object.dlpi_phnum; ++i) {
        const ElfW(Phdr) &part = object.dlpi_phdr[i];
        if (part.p_type != PT_LOAD)
            continue;
        std::uintptr_t begin = object.dlpi_addr + part.p_vaddr;
        range.begin = begin < range.begin ? begin : range.begin;
        range.end = begin + part.p_memsz > range.end ? begin + part.p_memsz : range.end;
    }
    return range;
}

// The program itself comes first.
int note_object(dl_phdr_info *object, size_t, void *data)
{
    auto &seam = *static_cast<Seam *>(data);
    if (seam.program.end == 0)
        seam.program = range_of(*object);
    else if (std::strstr(object->dlpi_name, "/libsystemd.so"))
        seam.systemd = range_of(*object);
    return 0;
}

} // namespace

void arm(const Fault &fault)
{
    static Seam seam;
    seam.fault = fault;
    dl_iterate_phdr(note_object, &seam);
    armed = &seam;
}

void disarm()
{
    armed = nullptr;
}

bool has_struck()
{
    return armed && armed->has_struck;
}

const std::map<std::string, std::size_t> &counts()
{
    return armed->counts;
}

Aside::Aside()
{
    ++asides;
}

Aside::~Aside()
{
    --asides;
}

int failure_of(const char *function, const void *caller, Callers callers)
{
    if (!armed || asides > 0)
        return 0;
    bool counts = armed->program.contains(caller) ||
                  (callers == Callers::ProgramAndSystemd && armed->systemd.contains(caller));
    if (!counts)
        return 0;
    std::size_t number = ++armed->counts[function];
    if (number != armed->fault.number || armed->fault.function != function)
        return 0;
    armed->has_struck = true;
    return armed->fault.failure;
}

} // namespace qandor::faults
