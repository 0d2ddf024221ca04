// SPDX-License-Identifier: LGPL-2.1-or-later

// Configuration files of the switch: each is read, with all values in their bounds, or is refused
// with the line that is wrong.

#include "fuzz/target.hpp"

#include "switch/configuration.hpp"

#include <sys/mman.h>
#include <unistd.h>

using namespace qandor;
using namespace qandor::fuzz;

namespace {

// A file in memory that is written over with each input.
class File {
public:
    File() : number_(memfd_create("configuration", MFD_CLOEXEC)), path_("/proc/self/fd/")
    {
        must(number_ >= 0, "a file can be made");
        path_ += std::to_string(number_);
    }
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    ~File() { close(number_); }

    const std::string &hold(const guint8 *bytes, gsize size)
    {
        must(ftruncate(number_, 0) == 0 &&
                 pwrite(number_, bytes, size, 0) == static_cast<ssize_t>(size),
             "a file can be written");
        return path_;
    }

private:
    int number_;
    std::string path_;
};

void check(const Limits &limits)
{
    for (const LimitName &limit : limit_names) {
        guint64 value = limits.*limit.value;
        must(value >= limit.least && value <= limit.most, "a limit is in its bounds");
    }
}

void check(const Configuration &configuration)
{
    must(g_path_is_absolute(configuration.types_read_only.c_str()) &&
             g_path_is_absolute(configuration.types_writable.c_str()),
         "a folder has a whole path");
    check(configuration.limits.common);
    for (const auto &[uid, limits] : configuration.limits.by_uid) {
        must(uid != G_MAXUINT32, "a user is somebody");
        check(limits);
    }
}

// "FILE:LINE: what is wrong"; a group or a key that a file has stands in one of its lines.
void check(const ConfigurationFault &fault, const std::string &path)
{
    must(fault.text.starts_with(path + ":"), "a fault names the file");
    int line = std::atoi(fault.text.c_str() + path.size() + 1);
    must(line > 0, "a fault names the line");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const guint8 *bytes, gsize size)
{
    static File file;
    const std::string &path = file.hold(bytes, size);
    auto read = read_configuration(path);
    if (const auto *fault = std::get_if<ConfigurationFault>(&read))
        check(*fault, path);
    else
        check(std::get<Configuration>(read));
    return 0;
}
