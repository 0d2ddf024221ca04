// SPDX-License-Identifier: LGPL-2.1-or-later

// A folder of its own for a test, gone with it.
#pragma once

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <stdlib.h>
#include <string>

namespace qandor::test {

class TemporaryFolder {
public:
    TemporaryFolder()
    {
        std::string pattern = std::filesystem::temp_directory_path() / "qandor-test-XXXXXX";
        if (!mkdtemp(pattern.data()))
            throw std::runtime_error("cannot make a temporary folder");
        path_ = pattern;
    }
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::filesystem::path &path() const { return path_; }
    std::string write(const std::string &name, const std::string &text) const
    {
        std::filesystem::path file = path_ / name;
        std::ofstream(file, std::ios::binary) << text;
        return file.string();
    }

private:
    std::filesystem::path path_;
};

} // namespace qandor::test
