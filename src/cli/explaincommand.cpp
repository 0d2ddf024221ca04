// SPDX-License-Identifier: LGPL-2.1-or-later

// qandor explain: condition by condition, why an expression is satisfied or is not.

#include "cli/clauses.hpp"
#include "cli/command.hpp"
#include "cli/expressions.hpp"
#include "cli/failure.hpp"
#include "cli/recordfile.hpp"
#include "cli/switchbus.hpp"
#include "cli/table.hpp"

namespace qandor::cli {
namespace {

constexpr int does_not_match = 1;

std::string mark(bool holds)
{
    const char *good = draws_in_unicode() ? "✓" : "+", *bad = draws_in_unicode() ? "✗" : "-";
    return styled(holds ? Style::Green : Style::Red, holds ? good : bad);
}

std::string verdict(bool holds)
{
    return holds ? "satisfies the expression" : "does not satisfy the expression";
}

void show(const Expression &expression, const Subject &subject)
{
    bool holds = subject.matches(expression);
    print_line(mark(holds) + " " + styled(Style::Bold, subject.title) + " " + verdict(holds));
    bool has_several = expression.alternatives().size() > 1;
    for (const Conditions &group : expression.alternatives()) {
        if (has_several)
            print_line("  " + mark(subject.matches(expression_of(group))) + " alternative");
        std::string indent = has_several ? "    " : "  ";
        Table table;
        for (const Clause &clause : clauses_of(group, subject))
            table.add({{indent + (clause.holds ? "yes" : "no "),
                        clause.holds ? Style::Green : Style::Red},
                       {printable(to_text(expression_of(clause.conditions))), Style::Cyan},
                       {clause.why}});
        if (table.empty())
            print_line(indent + "everything satisfies it");
        table.print();
    }
}

Json described(const Expression &expression, const Subject &subject)
{
    Json json = subject.json;
    json["matches"] = subject.matches(expression);
    json["alternatives"] = Json::array();
    for (const Conditions &group : expression.alternatives()) {
        Json clauses = Json::array();
        for (const Clause &clause : clauses_of(group, subject))
            clauses.push_back({{"conditions", to_text(expression_of(clause.conditions))},
                               {"holds", clause.holds},
                               {"why", clause.why}});
        json["alternatives"].push_back(
            {{"holds", subject.matches(expression_of(group))}, {"conditions", clauses}});
    }
    return json;
}

class ExplainCommand : public Command {
public:
    void add_options(Options &options) override
    {
        options.flag({"json", 'j', "as a JSON array"}, json_);
    }

    int run(const std::vector<std::string> &arguments) override
    {
        expect_arguments("explain", arguments, 1, 2);
        Expression expression = parse_argument(arguments[0]);
        std::vector<Subject> subjects =
            arguments.size() == 2 ? from_file(arguments[1]) : from_switch();
        Json json = Json::array();
        bool any = false;
        for (const Subject &subject : subjects) {
            any = any || subject.matches(expression);
            if (json_)
                json.push_back(described(expression, subject));
            else
                show(expression, subject);
        }
        if (json_)
            print_json(json);
        else if (subjects.empty())
            note("Nothing is declared.");
        return any ? EX_OK : does_not_match;
    }

private:
    static std::vector<Subject> from_file(const std::string &path)
    {
        Record record = read_record(read_input(path));
        if (auto *event = std::get_if<Event>(&record))
            return {subject_of(*event)};
        if (auto *declaration = std::get_if<Declaration>(&record))
            return {subject_of(*declaration)};
        throw Failure(EX_DATAERR, printable(path) + " holds neither an event nor a declaration",
                      "'qandor show' shows what it holds.");
    }

    static std::vector<Subject> from_switch()
    {
        SwitchBus bus;
        bus.require_switch();
        std::vector<Subject> subjects;
        for (const Declaration &declaration : bus.declarations())
            subjects.push_back(subject_of(declaration));
        return subjects;
    }

    bool json_ = false;
};

} // namespace

extern const CommandEntry explain_command = {
    "explain",
    "says why an expression is satisfied or is not",
    "[--json] EXPRESSION [FILE]",
    R"(Holds the expression against the event or the declaration in a file (see
'qandor help show' for what a file may be), or against everything that is
declared, and says of each condition whether it holds, and what is there.
Conditions on one key stand together: of several '=' one is enough. An open
value can satisfy any condition that wants its key. The exit code is 1 when
nothing satisfies the expression.

    qandor explain 'topic0=Device & load!=0.5' event.bin
    qandor explain 'topic0=Device & topic1=Load | door' door-moved.xml
    qandor explain 'topic1=Power & state=1'
)",
    make_command<ExplainCommand>,
    {Argument::Expression, Argument::File},
};

} // namespace qandor::cli
