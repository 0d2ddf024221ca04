// SPDX-License-Identifier: LGPL-2.1-or-later

// The command source: a queue of commands that run one at a time, in order, on the thread that
// iterates a main context. All bus work of a handle goes through one.
//
// Commands may be queued from any thread and from inside a command, which puts them at the back. A
// source runs a bounded number of commands before it lets the context's other sources have their
// turn, at the priority that the bus connections have: a fast producer does not keep messages
// waiting, and messages that were read ahead during a command are seen to after it.
//
// What waits counts into the handle's backlog. Commands may take a quarter of its bound in any
// case, so that a slow consumer, for whom the rest is waiting, costs nobody else an event; beyond
// that, when a thread queues faster than the context's thread runs, commands that deliver events
// are dropped on the thread that queues, and told.
#pragma once

#include "platform/backlog.hpp"
#include "platform/dropqueue.hpp"

#include <glib.h>

#include <memory>
#include <utility>

struct command_source;

using command_function = void (*)(gpointer data, gpointer user_data);

// Returns a source attached to the context (NULL: the default one), whose commands are all called
// with user_data. The last two arguments are 1 and NULL.
command_source *command_source_new_full(GMainContext *context, gpointer user_data, gint one,
                                        gpointer reserved);

// Queues function(data, user_data) and returns at once. The function frees its data itself.
void command_source_run_async(command_source *source, command_function function, gpointer data);

// Queues function(data, user_data) and returns when it has run, or when the source was freed before
// its turn came. On the thread that owns the context, which would wait for itself for ever, it is a
// critical and the function does not run.
void command_source_run(command_source *source, command_function function, gpointer data);

// Frees the source, also from inside one of its own commands. Commands that are still queued do not
// run: they are destroyed, which frees what a Command owns (the data of a plain function stays
// behind) and lets a waiting thread go on. A command that runs on another thread just then is not
// waited for. Nothing may be queued after this.
void command_source_free(command_source *source);

namespace qandor {

// A command that owns what it works on. It is destroyed after it has run or when it is dropped.
class Command {
public:
    virtual ~Command() = default;
    virtual void run() = 0;

    // The bytes that it takes, about, and whether it may be dropped.
    static constexpr std::size_t plain_size = 256;
    virtual std::size_t size() const { return plain_size; }
    virtual DropClass drop_class() const { return {}; }
    // Lets go of what it works on, on any thread. Returns whether it has to run all the same, since
    // somebody waits for a word.
    virtual bool drop() { return false; }
};

void command_source_post(command_source *source, std::unique_ptr<Command> command);

// What waits in the source and wherever else the handle counts it.
std::shared_ptr<Backlog> command_source_backlog(command_source *source);

// Queues a function object as a command.
template <class Function>
void command_source_post_function(command_source *source, Function function)
{
    struct FunctionCommand : Command {
        explicit FunctionCommand(Function function) : function(std::move(function)) {}
        void run() override { function(); }
        Function function;
    };
    command_source_post(source, std::make_unique<FunctionCommand>(std::move(function)));
}

} // namespace qandor
