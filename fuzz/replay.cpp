// SPDX-License-Identifier: LGPL-2.1-or-later

// Runs a target over files, without a fuzzer: seeds and findings, in every build.
//
//   fuzz-TARGET-replay FILE-OR-FOLDER...

#include "fuzz/target.hpp"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

namespace {

namespace fs = std::filesystem;

std::set<fs::path> files_of(const fs::path &place)
{
    if (!fs::is_directory(place))
        return {place};
    std::set<fs::path> files;
    for (const auto &entry : fs::recursive_directory_iterator(place))
        if (entry.is_regular_file())
            files.insert(entry.path());
    return files;
}

// The file is named first, so that a finding names it.
void replay(const fs::path &path)
{
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);
    std::ifstream file(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const guint8 *>(bytes.data()), bytes.size());
}

} // namespace

int main(int count, char **arguments)
{
    LLVMFuzzerInitialize(&count, &arguments);
    std::size_t replayed = 0;
    for (int i = 1; i < count; ++i) {
        for (const fs::path &path : files_of(arguments[i])) {
            replay(path);
            ++replayed;
        }
    }
    std::printf("%zu replayed\n", replayed);
    return replayed > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
