// SPDX-License-Identifier: LGPL-2.1-or-later

// qandor doctor: goes through what has to be right for events to flow, and says what is not.

#include "cli/command.hpp"
#include "cli/describe.hpp"
#include "cli/installedtypes.hpp"
#include "cli/json.hpp"
#include "cli/monitor.hpp"
#include "cli/table.hpp"
#include "cli/terminal.hpp"

#include <optional>

namespace qandor::cli {
namespace {

constexpr int something_is_wrong = 1;

enum class Health { Good, Doubtful, Bad };

struct Diagnosis {
    Health health;
    std::string what;
};

class DoctorCommand : public Command {
public:
    void add_options(Options &options) override
    {
        options.flag({"json", 'j', "as a JSON array"}, json_);
        folders_.add_options(options);
    }

    int run(const std::vector<std::string> &arguments) override
    {
        expect_arguments("doctor", arguments, 0, 0);
        if (std::optional<SwitchBus> bus = look_at_bus())
            if (look_at_switch(*bus)) {
                look_at_limits(*bus);
                look_at_types(*bus);
            }
        look_at_files();
        json_ ? write() : show();
        for (const Diagnosis &diagnosis : found_)
            if (diagnosis.health == Health::Bad)
                return something_is_wrong;
        return EX_OK;
    }

private:
    void say(Health health, std::string what) { found_.push_back({health, std::move(what)}); }

    // Whatever fails is a finding.
    template <class Look> bool look(Look look)
    {
        try {
            look();
            return true;
        } catch (const Failure &failure) {
            say(Health::Bad, failure.message());
            return false;
        }
    }

    std::optional<SwitchBus> look_at_bus()
    {
        std::optional<SwitchBus> bus;
        if (look([&] { bus.emplace(); }))
            say(Health::Good, "There is a system bus.");
        return bus;
    }

    bool look_at_switch(const SwitchBus &bus)
    {
        return look([&] {
            bool was_there = bus.owner().has_value();
            bus.require_switch();
            say(Health::Good,
                was_there ? "There is an event switch." : "The bus has started an event switch.");
            bus.declarations();
            say(Health::Good, "The switch answers.");
        });
    }

    void look_at_limits(const SwitchBus &bus)
    {
        look([&] {
            bool is_near = false;
            for (const MonitoredLimit &limit : list_limits(bus)) {
                if (limit.used < limit.limit / 10 * 9)
                    continue;
                is_near = true;
                std::string whose =
                    limit.uid == G_MAXUINT32 ? "all users" : "the user " + user_name(limit.uid);
                say(limit.used >= limit.limit ? Health::Bad : Health::Doubtful,
                    "Of " + limit.name + " " + whose + " use " + std::to_string(limit.used) +
                        " of " + std::to_string(limit.limit) + ".");
            }
            if (!is_near)
                say(Health::Good, "No limit is near.");
        });
    }

    void look_at_types(const SwitchBus &bus)
    {
        look([&] {
            std::size_t readable = 0;
            for (const InstalledTypes::Type &type : folders_.all())
                readable += type.declaration ? 1 : 0;
            std::size_t served = bus.types().size();
            say(served == readable ? Health::Good : Health::Doubtful,
                "The switch serves " + std::to_string(served) + " types; the folders have " +
                    std::to_string(readable) + " that can be read.");
        });
    }

    void look_at_files()
    {
        for (const InstalledTypes::Type &type : folders_.all())
            if (!type.declaration)
                say(Health::Bad,
                    printable(type.path) + " cannot be read; 'qandor check' says why.");
        for (const std::string &path : folders_.hidden())
            say(Health::Doubtful, printable(path) + " is hidden by the type of the system.");
    }

    static const char *name_of(Health health)
    {
        return health == Health::Good ? "good" : health == Health::Bad ? "bad" : "look";
    }
    static Style style_of(Health health)
    {
        return health == Health::Good  ? Style::Green
               : health == Health::Bad ? Style::Red
                                       : Style::Yellow;
    }

    void show() const
    {
        Table table;
        for (const Diagnosis &diagnosis : found_)
            table.add({{name_of(diagnosis.health), style_of(diagnosis.health)}, {diagnosis.what}});
        table.print();
    }

    void write() const
    {
        Json json = Json::array();
        for (const Diagnosis &diagnosis : found_)
            json.push_back({{"health", name_of(diagnosis.health)}, {"what", diagnosis.what}});
        print_json(json);
    }

    bool json_ = false;
    InstalledTypes folders_;
    std::vector<Diagnosis> found_;
};

} // namespace

extern const CommandEntry doctor_command = {
    "doctor",
    "looks for what keeps events from flowing",
    "[--json]",
    R"(Goes through the bus, the switch, its limits and the installed types: 'good',
'look' for what may be meant so, 'bad' for what has to be mended. The exit code
is 1 when something is bad.

    qandor doctor
    qandor doctor --json
)",
    make_command<DoctorCommand>,
};

} // namespace qandor::cli
