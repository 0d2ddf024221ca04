// SPDX-License-Identifier: LGPL-2.1-or-later

// qandor show: what is in a record.

#include "cli/command.hpp"
#include "cli/failure.hpp"
#include "cli/recordview.hpp"

namespace qandor::cli {
namespace {

class ShowCommand : public Command {
public:
    void add_options(Options &options) override
    {
        options.flag({"json", 'j', "as a JSON object"}, json_);
        options.flag({"xml", 'x', "in its XML form"}, xml_);
    }

    int run(const std::vector<std::string> &arguments) override
    {
        if (arguments.size() < 2) {
            show(arguments.empty() ? "-" : arguments[0]);
            return EX_OK;
        }
        int code = EX_OK;
        for (const std::string &path : arguments)
            if (int failed = show_one_of_many(path); failed != EX_OK)
                code = failed;
        return code;
    }

private:
    void show(const std::string &path) const
    {
        Record record = read_record(read_input(path));
        if (xml_) {
            std::string xml = xml_of(record);
            print(xml.ends_with('\n') ? xml : xml + "\n");
        } else if (json_) {
            print_json(json_of(record));
        } else {
            print_record(record);
        }
    }

    // What is wrong with one file does not hide what is in the others.
    int show_one_of_many(const std::string &path) const
    {
        if (!json_ && !xml_)
            print_line(styled(Style::Cyan, "== " + printable(path)));
        try {
            show(path);
            return EX_OK;
        } catch (const Failure &failure) {
            note(failure.message());
            std::fputs(failure.hint().c_str(), stderr);
            return failure.code();
        }
    }

    bool json_ = false;
    bool xml_ = false;
};

} // namespace

extern const CommandEntry show_command = {
    "show",
    "shows what is in a record",
    "[--json | --xml] [FILE]...",
    R"(Reads an event, a declaration, an expression, a state, a notification or a part
of one, as bytes, as bytes in hexadecimal or as XML, from files or from the
standard input. Bytes are checked before anything is made of them; what is
malformed is shown with the byte at which it goes wrong, and the exit code
is 65.

    qandor show door-moved.xml
    qandor show event.bin
    qandor show event.bin --json
    qandor show power-saving.xml --xml
    echo f1 f2 01 00 01 00 f3 0000 0000 0000 $(printf %046d 0) | qandor show
)",
    make_command<ShowCommand>,
    {Argument::File},
};

} // namespace qandor::cli
