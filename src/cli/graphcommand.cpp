// SPDX-License-Identifier: LGPL-2.1-or-later

// qandor graph: who produces what for whom, as a graph for Graphviz.

#include "cli/command.hpp"
#include "cli/describe.hpp"
#include "cli/monitor.hpp"
#include "cli/terminal.hpp"

#include <map>

namespace qandor::cli {
namespace {

// A text in quotes as Graphviz has it.
std::string dot_text(const std::string &text)
{
    std::string made = "\"";
    for (char letter : printable(text)) {
        if (letter == '"' || letter == '\\')
            made += '\\';
        made += letter;
    }
    return made + "\"";
}

std::string title_of(const MonitoredPeer &peer)
{
    return (peer.name.empty() ? peer.bus_name : peer.name) + ", process " +
           std::to_string(peer.pid);
}

std::string node(const char *kind, const MonitoredPeer &peer)
{
    return dot_text(std::string(kind) + " " + peer.bus_name + " " + peer.object);
}

class Graph {
public:
    explicit Graph(const SwitchBus &bus) : bus_(bus)
    {
        for (Declaration &declaration : bus.declarations()) {
            guint32 id = declaration.global_id();
            declarations_.emplace(id, std::move(declaration));
        }
    }

    void print() const
    {
        print_line("digraph qandor {\n  rankdir=LR;\n  node [fontname=\"sans-serif\"];");
        print_declarations();
        print_producers();
        print_consumers();
        print_line("}");
    }

private:
    void print_declarations() const
    {
        for (const auto &[id, declaration] : declarations_) {
            std::string topics = topic_path(keys_of(declaration.sample()));
            print_line("  declaration" + std::to_string(id) +
                       " [shape=" + (declaration.is_property() ? "cylinder" : "note") +
                       ", label=" + dot_text(topics) + "];");
        }
    }

    void print_producers() const
    {
        for (const MonitoredPeer &producer : list_producers(bus_)) {
            print_line("  " + node("producer", producer) +
                       " [shape=box, label=" + dot_text(title_of(producer)) + "];");
            for (guint32 id : producer.ids)
                print_line("  " + node("producer", producer) + " -> declaration" +
                           std::to_string(id) + ";");
        }
    }

    void print_consumers() const
    {
        std::map<guint32, const MonitoredPeer *> owners;
        std::vector<MonitoredPeer> consumers = list_consumers(bus_);
        for (const MonitoredPeer &consumer : consumers) {
            print_line("  " + node("consumer", consumer) +
                       " [shape=ellipse, label=" + dot_text(title_of(consumer)) + "];");
            for (guint32 id : consumer.ids)
                owners[id] = &consumer;
        }
        for (const MonitoredSubscription &subscription : list_subscriptions(bus_))
            if (auto owner = owners.find(subscription.id); owner != owners.end())
                print_edges(subscription, *owner->second);
    }

    static void print_edges(const MonitoredSubscription &subscription,
                            const MonitoredPeer &consumer)
    {
        const char *style = subscription.clandestine ? ", style=dashed" : "";
        for (guint32 id : subscription.declarations)
            print_line("  declaration" + std::to_string(id) + " -> " + node("consumer", consumer) +
                       " [label=" + dot_text(subscription.expression) + style + "];");
    }

    const SwitchBus &bus_;
    std::map<guint32, Declaration> declarations_;
};

class GraphCommand : public Command {
public:
    int run(const std::vector<std::string> &arguments) override
    {
        expect_arguments("graph", arguments, 0, 0);
        SwitchBus bus;
        bus.require_switch();
        Graph(bus).print();
        return EX_OK;
    }
};

} // namespace

extern const CommandEntry graph_command = {
    "graph",
    "draws who produces what for whom",
    "",
    R"(Writes a graph for Graphviz: boxes are producers, notes what they declare (drums
are properties), ellipses consumers; an edge to a consumer has its expression on
it, and is dashed for a clandestine subscription. Who listens to what is for
root and the switch's own user.

    qandor graph
    qandor graph >graph.dot
)",
    make_command<GraphCommand>,
};

} // namespace qandor::cli
