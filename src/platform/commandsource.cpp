// SPDX-License-Identifier: LGPL-2.1-or-later

#include "platform/commandsource.hpp"

#include "platform/check.hpp"
#include "platform/owners.hpp"

#include <condition_variable>
#include <list>
#include <mutex>

using namespace qandor;

namespace {

constexpr int batch = 16;

// Whom drops are told of: the consumers of a dropped command are not known yet.
constexpr const char *receiver = "The main context";

using Commands = std::list<std::unique_ptr<Command>>;

struct CountedCommand {
    std::unique_ptr<Command> command;
    BacklogPart charge;
};

// What the source and a running dispatch share, so that a command may free the source it runs on.
struct Queue {
    std::mutex mutex;
    DropQueue<CountedCommand> commands;
    bool closed = false;
    gpointer user_data = nullptr;
    const std::shared_ptr<Backlog> backlog = std::make_shared<Backlog>();

    std::unique_ptr<Command> take()
    {
        std::lock_guard lock(mutex);
        if (closed || commands.empty())
            return nullptr;
        return std::move(commands.pop().command);
    }

    void add(std::unique_ptr<Command> command)
    {
        std::size_t size = command->size();
        DropClass drop_class = command->drop_class();
        commands.push({std::move(command), BacklogPart(backlog, size)}, size,
                      std::move(drop_class));
    }

    // Returns what has to be destroyed, outside the lock.
    Commands keep_within_bound()
    {
        Commands dropped;
        while (backlog->is_over() && commands.bytes() > backlog->limit() / 4) {
            auto victim = commands.victim();
            if (!victim)
                break;
            if (victim->is_state)
                backlog->report.count_superseded_state(receiver);
            else
                backlog->report.count_event(receiver);
            CountedCommand &counted = commands.item(*victim);
            if (counted.command->drop()) {
                counted.charge = BacklogPart(backlog, Command::plain_size);
                commands.keep(*victim, Command::plain_size);
            } else {
                dropped.push_back(std::move(commands.drop(*victim).command));
            }
        }
        return dropped;
    }

    // Destroys what is queued outside the lock: a command's destructor may do anything.
    void close()
    {
        DropQueue<CountedCommand> dropped;
        std::lock_guard lock(mutex);
        closed = true;
        std::swap(dropped, commands);
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

// Returns when the rest is due, as a source's ready time.
gint64 tell_losses(Backlog &backlog)
{
    guint64 next = backlog.report.tell(static_cast<guint64>(g_get_monotonic_time()));
    return next == G_MAXUINT64 ? -1 : static_cast<gint64>(next);
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

    gint64 next_telling = tell_losses(*queue->backlog);
    std::lock_guard lock(queue->mutex);
    if (queue->closed)
        return G_SOURCE_REMOVE;
    if (queue->commands.empty())
        g_source_set_ready_time(source, next_telling);
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
    Commands dropped;
    {
        std::lock_guard lock(source->queue->mutex);
        // Only the first of a row has to wake the context.
        if (source->queue->commands.empty())
            g_source_set_ready_time(source->source.get(), 0);
        source->queue->add(std::move(command));
        dropped = source->queue->keep_within_bound();
    }
    if (!dropped.empty())
        tell_losses(*source->queue->backlog);
}

std::shared_ptr<Backlog> qandor::command_source_backlog(command_source *source)
{
    return source->queue->backlog;
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
    source->queue->backlog->report.tell_the_rest();
    g_source_destroy(source->source.get());
    delete source;
}
