// SPDX-License-Identifier: LGPL-2.1-or-later

// qandor tree: the topics of what is declared, or of what is installed, as a tree.

#include "cli/command.hpp"
#include "cli/eventjson.hpp"
#include "cli/expressions.hpp"
#include "cli/switchbus.hpp"
#include "cli/table.hpp"
#include "cli/topics.hpp"

#include <algorithm>

namespace qandor::cli {
namespace {

struct Lines {
    const char *branch, *last, *through, *nothing;
};
constexpr Lines unicode_lines = {"├── ", "└── ", "│   ", "    "};
constexpr Lines ascii_lines = {"|-- ", "`-- ", "|   ", "    "};

const Lines &lines()
{
    return draws_in_unicode() ? unicode_lines : ascii_lines;
}

// A text behind a prefix; what does not fit goes on below, under another prefix.
void print_behind(const std::string &first, const std::string &further, const std::string &text,
                  Style style)
{
    std::size_t taken = columns_of(first);
    std::size_t width = output_width() == 0 ? 0 : std::max<std::size_t>(output_width(), taken + 12);
    std::string prefix = first;
    for (const std::string &line : wrapped(text, width == 0 ? 0 : width - taken)) {
        print_line(styled(Style::Dim, prefix) + styled(style, line));
        prefix = further;
    }
}

std::string title_of(const TopicNode &node)
{
    std::string title = node.name_space.empty() ? "" : printable(node.name_space) + ":";
    title += printable(node.name);
    if (!node.nice_name.empty())
        title += " \"" + printable(node.nice_name) + "\"";
    for (const std::string &tag : node.tags)
        title += " {" + printable(tag) + "}";
    return title;
}

std::string line_of(const Declaration &declaration)
{
    Event sample = declaration.sample();
    std::vector<KeyView> keys = keys_of(sample);
    std::string text = kind_of(declaration);
    if (declaration.global_id() > 0)
        text += " " + std::to_string(declaration.global_id());
    std::string content = keys_text(keys);
    text += content.empty() ? "" : ": " + content;
    for (const std::string &tag : sample.tags())
        text += " {" + printable(tag) + "}";
    return text;
}

void print_children(const TopicNode &node, const std::string &prefix)
{
    std::size_t left = node.declarations.size() + node.children.size();
    for (const Declaration *declaration : node.declarations) {
        bool is_last = --left == 0;
        std::string further = prefix + (is_last ? lines().nothing : lines().through) + "  ";
        print_behind(prefix + (is_last ? lines().last : lines().branch), further,
                     line_of(*declaration),
                     declaration->is_property() ? Style::Yellow : Style::Plain);
    }
    for (const TopicNode &child : node.children) {
        bool is_last = --left == 0;
        std::string further = prefix + (is_last ? lines().nothing : lines().through);
        print_behind(prefix + (is_last ? lines().last : lines().branch), further, title_of(child),
                     Style::Bold);
        print_children(child, further);
    }
}

Json json_of(const TopicNode &node)
{
    Json json{{"topic", node.name}};
    if (!node.name_space.empty())
        json["name_space"] = node.name_space;
    if (!node.nice_name.empty())
        json["nice_name"] = node.nice_name;
    json["tags"] = node.tags;
    json["events"] = Json::array();
    for (const Declaration *declaration : node.declarations)
        json["events"].push_back(cli::json_of(*declaration));
    json["children"] = Json::array();
    for (const TopicNode &child : node.children)
        json["children"].push_back(json_of(child));
    return json;
}

class TreeCommand : public Command {
public:
    void add_options(Options &options) override
    {
        options.flag({"types", 't', "of the installed types instead of what is declared"}, types_);
        options.flag({"json", 'j', "as JSON: an array of topics"}, json_);
    }

    int run(const std::vector<std::string> &arguments) override
    {
        Expression expression = any_of(arguments);
        SwitchBus bus;
        bus.require_switch();
        std::vector<Declaration> all = types_ ? bus.types() : bus.declarations();
        std::vector<Declaration> matching;
        for (Declaration &declaration : all)
            if (declaration.matches(expression))
                matching.push_back(std::move(declaration));
        TopicNode root = tree_of(matching);
        json_ ? write(root) : show(root);
        return EX_OK;
    }

private:
    static void write(const TopicNode &root)
    {
        Json json = Json::array();
        for (const TopicNode &child : root.children)
            json.push_back(json_of(child));
        print_json(json);
    }

    void show(const TopicNode &root) const
    {
        if (root.children.empty())
            return note(types_ ? "No type is installed that matches."
                               : "Nothing is declared that matches.");
        for (const TopicNode &child : root.children) {
            print_behind("", "  ", title_of(child), Style::Bold);
            print_children(child, "");
        }
    }

    bool types_ = false;
    bool json_ = false;
};

} // namespace

extern const CommandEntry tree_command = {
    "tree",
    "draws the tree of topics",
    "[--types] [--json] [EXPRESSION]...",
    R"(Draws the topics of what is declared, or with --types of what is installed,
with display names in quotes and tags in braces. Under each topic stand the
events and properties that end there, with their ids and their keys:
'load:double' is open, 'unit=1' is fixed, and a star marks the key whose value
is the state. Internal declarations are in no tree; 'qandor list' has them.

    qandor tree
    qandor tree --types
    qandor tree 'topic0=Device & topic1=Power' --json
)",
    make_command<TreeCommand>,
    {Argument::Expression},
};

} // namespace qandor::cli
