// SPDX-License-Identifier: LGPL-2.1-or-later

// qandor types: what types are installed, and adding and removing them.

#include "cli/command.hpp"
#include "cli/declaring.hpp"
#include "cli/describe.hpp"
#include "cli/eventjson.hpp"
#include "cli/failure.hpp"
#include "cli/installedtypes.hpp"
#include "cli/recordfile.hpp"
#include "cli/switchbus.hpp"
#include "cli/table.hpp"

#include <algorithm>

namespace qandor::cli {
namespace {

constexpr const char *no_name = "-";

// A type as the switch has it, with what the folders say about it.
struct Listed {
    std::string name = no_name;
    std::string origin = no_name;
    const Declaration *declaration;
};

bool is_same(const Declaration &one, const Declaration &other)
{
    return inspectable_is_equal(event_declaration_get_inspectable(one.c()),
                                event_declaration_get_inspectable(other.c()));
}

// The switch tells declarations alone; each takes the name of a file that says the same.
std::vector<Listed> named(const std::vector<Declaration> &declarations,
                          std::vector<InstalledTypes::Type> files)
{
    std::vector<Listed> listed;
    for (const Declaration &declaration : declarations) {
        Listed &row = listed.emplace_back();
        row.declaration = &declaration;
        auto file = std::find_if(files.begin(), files.end(), [&](const InstalledTypes::Type &type) {
            return type.declaration && is_same(*type.declaration, declaration);
        });
        if (file == files.end())
            continue;
        row.name = file->name;
        row.origin = file->is_system ? "system" : "added";
        files.erase(file);
    }
    return listed;
}

class TypesCommand : public Command {
public:
    void add_options(Options &options) override
    {
        options.flag({"json", 'j', "as a JSON array"}, json_);
        folders_.add_options(options);
    }

    int run(const std::vector<std::string> &arguments) override
    {
        if (arguments.empty())
            return list();
        if (arguments[0] == "add" && arguments.size() == 3)
            return add(arguments[1], arguments[2]);
        if (arguments[0] == "remove" && arguments.size() == 2)
            return remove(arguments[1]);
        throw Failure(EX_USAGE, "Expected is 'add NAME FILE', 'remove NAME', or nothing",
                      "See 'qandor help types'.");
    }

private:
    int list() const
    {
        SwitchBus bus;
        bus.require_switch();
        std::vector<Declaration> declarations = bus.types();
        std::vector<Listed> listed = named(declarations, folders_.all());
        json_ ? write(listed) : show(listed);
        for (const InstalledTypes::Type &type : folders_.all())
            if (!type.declaration)
                note(type.path + " cannot be read; 'qandor check' says why");
        for (const std::string &path : folders_.hidden())
            note(path + " is hidden by the type of the system");
        return EX_OK;
    }

    static void write(const std::vector<Listed> &listed)
    {
        Json json = Json::array();
        for (const Listed &row : listed) {
            Json one{{"name", row.name == no_name ? Json() : Json(row.name)},
                     {"from", row.origin == no_name ? Json() : Json(row.origin)}};
            one.update(json_of(*row.declaration));
            one.erase("declaration");
            one.erase("producer");
            json.push_back(one);
        }
        print_json(json);
    }

    static void show(const std::vector<Listed> &listed)
    {
        Table table({"NAME", "FROM", "TOPIC", "KIND", "KEYS"});
        for (const Listed &row : listed) {
            std::vector<KeyView> keys = keys_of(row.declaration->sample());
            table.add({{printable(row.name), Style::Bold},
                       {row.origin},
                       {topic_path(keys), Style::Cyan},
                       {kind_of(*row.declaration)},
                       {keys_text(keys)}});
        }
        if (table.empty())
            note("No types are installed.");
        else
            table.print();
    }

    static void expect_name(const std::string &name)
    {
        if (!is_type_name(name))
            throw Failure(
                EX_USAGE, "'" + printable(name) + "' is no name of a type",
                "A name is 1 to 128 letters, digits, '.', '_', '-', with no '.' in front.");
    }

    static int add(const std::string &name, const std::string &path)
    {
        expect_name(name);
        Declaration declaration = read_declaration(path);
        if (!can_be_declared(declaration))
            throw Failure(EX_DATAERR, printable(path) + " is an external type without a topic",
                          "Nobody could declare it; 'qandor check' says more.");
        SwitchBus bus;
        bus.require_switch();
        Message call = bus.new_call(DBUS_INTERFACE_SWITCH_PRODUCER, "AddDeclaration");
        Bytes bytes(event_declaration_serialize(declaration.c()));
        sd_bus_message_append(call.get(), "s", name.c_str());
        sd_bus_message_append_array(call.get(), 'y', bytes->data, bytes->len);
        bus.call(call);
        print_line("The type '" + name + "' is installed.");
        return EX_OK;
    }

    static int remove(const std::string &name)
    {
        expect_name(name);
        SwitchBus bus;
        bus.require_switch();
        Message call = bus.new_call(DBUS_INTERFACE_SWITCH_PRODUCER, "RemoveDeclaration");
        sd_bus_message_append(call.get(), "s", name.c_str());
        bus.call(call);
        print_line("The type '" + name + "' is no longer installed.");
        return EX_OK;
    }

    InstalledTypes folders_;
    bool json_ = false;
};

} // namespace

extern const CommandEntry types_command = {
    "types",
    "lists the installed types, adds and removes some",
    "[--json] | add NAME FILE | remove NAME",
    R"(Without an argument: the types that the switch has, with the names of their
files. Types that are 'added' can be removed again, those of the 'system' are
part of it. Adding and removing is for root and the switch's own user; a type
that was added under the same name before is replaced.

    qandor types
    qandor types --json
    qandor types add door-moved door-moved.xml
    qandor types remove door-moved
)",
    make_command<TypesCommand>,
    {Argument::TypeChange, Argument::Type, Argument::File},
};

} // namespace qandor::cli
