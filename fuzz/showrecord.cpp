// SPDX-License-Identifier: LGPL-2.1-or-later

// What 'qandor show' makes of a file: whatever is in it is shown in every form, or refused.

#include "fuzz/target.hpp"

#include "cli/failure.hpp"
#include "cli/recordview.hpp"

#include <utility>

using namespace qandor::cli;
using namespace qandor::fuzz;

namespace {

// What is shown goes nowhere.
class Nowhere {
public:
    Nowhere() : before_(std::exchange(stdout, std::fopen("/dev/null", "we"))) {}
    Nowhere(const Nowhere &) = delete;
    Nowhere &operator=(const Nowhere &) = delete;
    ~Nowhere() { std::fclose(std::exchange(stdout, before_)); }

private:
    std::FILE *before_;
};

void show(const Record &record)
{
    Nowhere nowhere;
    print_record(record);
    print_json(json_of(record));
    try {
        print(xml_of(record));
    } catch (const Failure &failure) {
        must(failure.code() == EX_DATAERR, "a record without an XML form is a fault of the data");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const guint8 *bytes, gsize size)
{
    Input input{"input", "-", std::string(reinterpret_cast<const char *>(bytes), size)};
    try {
        show(read_record(input));
    } catch (const Failure &failure) {
        must(failure.code() == EX_DATAERR, "what is refused is a fault of the data");
        must(!failure.message().empty(), "what is refused is said");
    }
    return 0;
}
