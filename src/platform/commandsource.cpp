// SPDX-License-Identifier: LGPL-2.1-or-later

#include "platform/commandsource.hpp"

#include "platform/check.hpp"
#include "platform/owners.hpp"

#include <condition_variable>
#include <deque>
#include <mutex>

using namespace qandor;

namespace {

constexpr int batch = 16;

// What the source and a running dispatch share, so that a command may free the source it runs on.
struct Queue {
    std::mutex mutex;
    std::deque<std::unique_ptr<Command>> commands;
    bool closed = false;
    gpointer user_data = nullptr;

    std::unique_ptr<Command> take()
    {
        std::lock_guard lock(mutex);
        if (closed || commands.empty())
            return nullptr;
        std::unique_ptr<Command> command = std::move(commands.front());
        commands.pop_front();
        return command;
    }

    // Destroys what is queued outside the lock: a command's destructor may do anything.
    void close()
    {
        std::deque<std::unique_ptr<Command>> dropped;
        std::lock_guard lock(mutex);
        closed = true;
        dropped.swap(commands);
    }
};

// GLib allocates and frees it; the queue in it is made and destroyed in place.
struct CommandGSource {
    GSource source;
    std::shared_ptr<Queue> queue;
};

std::shared_ptr<Queue> &queue_of(GSource *source)
{
    return reinterpret_cast<CommandGSource *>(source)->queue;
}

gboolean dispatch(GSource *source, GSourceFunc, gpointer)
{
    std::shared_ptr<Queue> queue = queue_of(source);
    for (int i = 0; i < batch; ++i) {
        std::unique_ptr<Command> command = queue->take();
        if (!command)
            break;
        command->run();
    }

    std::lock_guard lock(queue->mutex);
    if (queue->closed)
        return G_SOURCE_REMOVE;
    if (queue->commands.empty())
        g_source_set_ready_time(source, -1);
    return G_SOURCE_CONTINUE;
}

void finalize(GSource *source)
{
    std::destroy_at(&queue_of(source));
}

GSourceFuncs functions = {nullptr, nullptr, dispatch, finalize, nullptr, nullptr};

struct PlainCommand : Command {
    PlainCommand(command_function function, gpointer data, gpointer user_data)
        : function(function), data(data), user_data(user_data)
    {
    }
    void run() override { function(data, user_data); }

    command_function function;
    gpointer data;
    gpointer user_data;
};

// Where a thread waits for its command to have run or to be dropped.
class Gate {
public:
    void open()
    {
        std::lock_guard lock(mutex_);
        open_ = true;
        opened_.notify_all();
    }
    void wait()
    {
        std::unique_lock lock(mutex_);
        opened_.wait(lock, [this] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable opened_;
    bool open_ = false;
};

struct AwaitedCommand : PlainCommand {
    AwaitedCommand(command_function function, gpointer data, gpointer user_data, Gate &gate)
        : PlainCommand(function, data, user_data), gate(gate)
    {
    }
    ~AwaitedCommand() override { gate.open(); }

    Gate &gate;
};

} // namespace

struct command_source {
    std::shared_ptr<Queue> queue = std::make_shared<Queue>();
    MainSourceOwner source;
};

command_source *command_source_new_full(GMainContext *context, gpointer user_data, gint, gpointer)
{
    auto *made = new command_source();
    made->queue->user_data = user_data;
    made->source.reset(g_source_new(&functions, sizeof(CommandGSource)));
    std::construct_at(&queue_of(made->source.get()), made->queue);
    g_source_attach(made->source.get(), context);
    return made;
}

void qandor::command_source_post(command_source *source, std::unique_ptr<Command> command)
{
    std::lock_guard lock(source->queue->mutex);
    source->queue->commands.push_back(std::move(command));
    // Only the first of a row has to wake the context.
    if (source->queue->commands.size() == 1)
        g_source_set_ready_time(source->source.get(), 0);
}

void command_source_run_async(command_source *source, command_function function, gpointer data)
{
    command_source_post(source,
                        std::make_unique<PlainCommand>(function, data, source->queue->user_data));
}

void command_source_run(command_source *source, command_function function, gpointer data)
{
    gboolean on_own_thread = g_main_context_is_owner(g_source_get_context(source->source.get()));
    RETURN_IF_FAIL(!on_own_thread);
    Gate gate;
    command_source_post(
        source, std::make_unique<AwaitedCommand>(function, data, source->queue->user_data, gate));
    gate.wait();
}

void command_source_free(command_source *source)
{
    source->queue->close();
    g_source_destroy(source->source.get());
    delete source;
}
