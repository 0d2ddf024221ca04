// SPDX-License-Identifier: LGPL-2.1-or-later

// qandor list: what producers have declared just now.

#include "cli/command.hpp"
#include "cli/describe.hpp"
#include "cli/eventjson.hpp"
#include "cli/expressions.hpp"
#include "cli/monitor.hpp"
#include "cli/table.hpp"

#include <map>

namespace qandor::cli {
namespace {

using Producers = std::map<guint32, MonitoredPeer>; // by producer id

Producers producers_on(const SwitchBus &bus)
{
    Producers producers;
    for (MonitoredPeer &peer : list_producers(bus))
        producers.emplace(peer.producer_id, std::move(peer));
    return producers;
}

guint32 producer_id(const Declaration &declaration)
{
    return event_declaration_get_producer_id(declaration.c());
}

std::string producer_text(const Producers &producers, guint32 id)
{
    auto found = producers.find(id);
    if (found == producers.end())
        return "-";
    return printable_word(found->second.name) + " (" + std::to_string(found->second.pid) + ")";
}

Json json_of(const Declaration &declaration, const Producers &producers)
{
    Json json = cli::json_of(declaration);
    if (auto found = producers.find(producer_id(declaration)); found != producers.end())
        json["declared_by"] = {{"name", found->second.name},
                               {"bus_name", found->second.bus_name},
                               {"pid", found->second.pid},
                               {"uid", found->second.uid}};
    return json;
}

class ListCommand : public Command {
public:
    void add_options(Options &options) override
    {
        options.flag({"json", 'j', "as a JSON array"}, json_);
    }

    int run(const std::vector<std::string> &arguments) override
    {
        Expression expression = any_of(arguments);
        SwitchBus bus;
        bus.require_switch();
        std::vector<Declaration> matching;
        for (Declaration &declaration : bus.declarations())
            if (declaration.matches(expression))
                matching.push_back(std::move(declaration));
        Producers producers = producers_on(bus);
        json_ ? write(matching, producers) : show(matching, producers);
        return EX_OK;
    }

private:
    static void write(const std::vector<Declaration> &declarations, const Producers &producers)
    {
        Json json = Json::array();
        for (const Declaration &declaration : declarations)
            json.push_back(json_of(declaration, producers));
        print_json(json);
    }

    static void show(const std::vector<Declaration> &declarations, const Producers &producers)
    {
        Table table({"ID", "TOPIC", "KIND", "PRODUCER", "KEYS"});
        for (const Declaration &declaration : declarations) {
            std::vector<KeyView> keys = keys_of(declaration.sample());
            table.add({{std::to_string(declaration.global_id())},
                       {topic_path(keys), Style::Cyan},
                       {kind_of(declaration)},
                       {producer_text(producers, producer_id(declaration))},
                       {keys_text(keys)}});
        }
        if (table.empty())
            note("Nothing is declared that matches.");
        else
            table.print();
    }

    bool json_ = false;
};

} // namespace

extern const CommandEntry list_command = {
    "list",
    "lists what producers have declared",
    "[--json] [EXPRESSION]...",
    R"(Shows all declarations, or those whose events can satisfy one of the
expressions. Of the keys, 'load:double' is open, to be filled in by each event,
'unit=1' is fixed, and a star marks the key whose value is the state.

    qandor list
    qandor list topic0=Device
    qandor list 'topic0=Device & !state' --json
)",
    make_command<ListCommand>,
    {Argument::Expression},
};

} // namespace qandor::cli
