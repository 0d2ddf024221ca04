// SPDX-License-Identifier: LGPL-2.1-or-later

// Installed types of a test's own, in this process and in those it starts: the program is linked
// with typesroot.c (types_root_dep), which looks for the system's folders below a root.
#pragma once

#include "support/temporaryfolder.hpp"

#include <cstdlib>

namespace qandor::test {

class InstalledTypes {
public:
    InstalledTypes()
    {
        std::filesystem::create_directories(shipped());
        std::filesystem::create_directories(added());
        setenv("QANDOR_TYPES_ROOT", root_.path().c_str(), 1);
    }
    // The folders of a switch, so that what is installed through it is there for everybody.
    InstalledTypes(const std::filesystem::path &read_only, const std::filesystem::path &writable)
    {
        std::filesystem::create_directories(shipped().parent_path());
        std::filesystem::create_directories(added().parent_path());
        std::filesystem::create_directory_symlink(read_only, shipped());
        std::filesystem::create_directory_symlink(writable, added());
        setenv("QANDOR_TYPES_ROOT", root_.path().c_str(), 1);
    }
    InstalledTypes(const InstalledTypes &) = delete;
    InstalledTypes &operator=(const InstalledTypes &) = delete;
    ~InstalledTypes() { unsetenv("QANDOR_TYPES_ROOT"); }

    void ship(const std::string &type, const std::string &xml) const
    {
        std::ofstream(shipped() / (type + ".xml")) << xml;
    }
    void add(const std::string &type, const std::string &xml) const
    {
        std::ofstream(added() / (type + ".xml")) << xml;
    }

private:
    std::filesystem::path shipped() const
    {
        return root_.path() / "usr/share/event/declarations.d";
    }
    std::filesystem::path added() const { return root_.path() / "etc/event_switch/declarations.d"; }

    TemporaryFolder root_;
};

} // namespace qandor::test
