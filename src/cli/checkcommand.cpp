// SPDX-License-Identifier: LGPL-2.1-or-later

// qandor check: what is wrong with declaration files, and what the installed system makes of them.

#include "cli/command.hpp"
#include "cli/failure.hpp"
#include "cli/installedtypes.hpp"
#include "cli/json.hpp"
#include "cli/recordfile.hpp"
#include "cli/xmlcheck.hpp"

#include <algorithm>
#include <filesystem>

namespace qandor::cli {
namespace {

constexpr int has_warnings = 1;

// A file with what was found in it.
struct CheckedFile {
    std::string path;
    XmlReport report;
    std::vector<std::string> remarks; // about its place in the system
};

class CheckCommand : public Command {
public:
    void add_options(Options &options) override
    {
        options.flag({"strict", 's', "the exit code is 1 for warnings too"}, strict_);
        options.flag({"json", 'j', "as a JSON array"}, json_);
        folders_.add_options(options);
    }

    int run(const std::vector<std::string> &arguments) override
    {
        expect_arguments("check", arguments, 1, arguments.size() + 1);
        std::vector<CheckedFile> files;
        files.reserve(arguments.size());
        for (const std::string &path : arguments)
            files.push_back(checked(path));
        if (json_)
            write(files);
        else
            std::for_each(files.begin(), files.end(), show);
        return exit_code(files);
    }

private:
    CheckedFile checked(const std::string &path) const
    {
        Input input = read_input(path);
        CheckedFile file{path == "-" ? input.name : path, check_xml(input.bytes), {}};
        if (file.report.kind && file.report.kind != XmlKind::Declaration)
            file.report.findings.push_back(
                {{}, Severity::Refused, "this is no declaration, and so no type"});
        if (path != "-")
            remark(file);
        return file;
    }

    // What the switch and the library make of a file of this name.
    void remark(CheckedFile &file) const
    {
        std::filesystem::path path(file.path);
        std::string name = path.stem();
        if (path.extension() != ".xml" || !is_type_name(name)) {
            file.remarks.push_back("the name is no type's, which is NAME.xml");
            return;
        }
        std::error_code ignored;
        std::string system = folders_.system_path(name), added = folders_.added_path(name);
        bool is_system = std::filesystem::equivalent(path, system, ignored);
        bool is_added = std::filesystem::equivalent(path, added, ignored);
        if (!is_system && std::filesystem::exists(system, ignored))
            file.remarks.push_back("the type '" + name + "' of the system, " + system +
                                   ", hides it");
        else if (!is_system && !is_added && std::filesystem::exists(added, ignored))
            file.remarks.push_back("'qandor types add' would replace " + added);
    }

    static std::string place_of(std::string file, XmlPlace place)
    {
        return file.append(":")
            .append(std::to_string(place.line))
            .append(":")
            .append(std::to_string(place.column))
            .append(": ");
    }

    static void show(const CheckedFile &file)
    {
        std::string name = printable(file.path);
        for (const Finding &finding : file.report.findings) {
            bool is_warning = finding.severity == Severity::Warning;
            std::string severity =
                styled(is_warning ? Style::Yellow : Style::Red, is_warning ? "warning" : "error");
            print_line(place_of(name, finding.place).append(severity).append(": ") + finding.what);
        }
        for (const std::string &text : file.remarks)
            print_line(std::string(name).append(": note: ").append(text));
        if (file.report.findings.empty())
            print_line(name + ": " + styled(Style::Green, "good"));
    }

    static void write(const std::vector<CheckedFile> &files)
    {
        Json json = Json::array();
        for (const CheckedFile &file : files) {
            Json findings = Json::array();
            for (const Finding &finding : file.report.findings)
                findings.push_back(
                    {{"line", finding.place.line},
                     {"column", finding.place.column},
                     {"severity", finding.severity == Severity::Warning ? "warning" : "error"},
                     {"what", finding.what}});
            json.push_back({{"file", file.path},
                            {"good", !file.report.has_errors()},
                            {"findings", findings},
                            {"notes", file.remarks}});
        }
        print_json(json);
    }

    int exit_code(const std::vector<CheckedFile> &files) const
    {
        bool has_errors = false, has_findings = false;
        for (const CheckedFile &file : files) {
            has_errors = has_errors || file.report.has_errors();
            has_findings = has_findings || !file.report.findings.empty();
        }
        if (has_errors)
            return EX_DATAERR;
        return strict_ && has_findings ? has_warnings : EX_OK;
    }

    bool strict_ = false;
    bool json_ = false;
    InstalledTypes folders_;
};

} // namespace

extern const CommandEntry check_command = {
    "check",
    "says what is wrong with declaration files",
    "[OPTION]... FILE...",
    R"(Looks at files as a type of the system has to be, each finding with its line
and column. An error is what keeps the type from being read, declared or sent;
the exit code is 65 then. A warning is what is passed over although it can only
be a mistake. Notes say what the installed system makes of a file of that name.

    qandor check door-moved.xml
    qandor check --strict *.xml
    qandor check --json power-saving.xml
)",
    make_command<CheckCommand>,
    {Argument::File},
};

} // namespace qandor::cli
