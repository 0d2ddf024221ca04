// SPDX-License-Identifier: LGPL-2.1-or-later

// A consumer in C++: prints the events of one topic.
//
//     c++ -std=c++20 watch-topic.cpp -o watch-topic $(pkg-config --cflags --libs qandor)
//     ./watch-topic Device

#include <qandor/qandor.hpp>

#include <glib-unix.h>

#include <csignal>
#include <iostream>
#include <memory>
#include <optional>

namespace {

void print(const qandor::Event &event)
{
    for (const std::string &key : event.keys())
        std::cout << key << '=' << event[key.c_str()].as<std::string>() << ' ';
    std::cout << std::endl;
}

class Application {
public:
    explicit Application(const char *topic)
        : topic_(consumer_->subscribe(qandor::key("topic0") == topic, print))
    {
        consumer_->when_gone([this] { g_main_loop_quit(loop_.get()); });
        g_unix_signal_add(SIGINT, stop, this);
        g_unix_signal_add(SIGTERM, stop, this);
    }

    void run() { g_main_loop_run(loop_.get()); }

private:
    // The loop has to go on until the consumer has said farewell.
    static gboolean stop(gpointer self)
    {
        auto *application = static_cast<Application *>(self);
        application->topic_.reset();
        application->consumer_.reset();
        return G_SOURCE_CONTINUE;
    }

    std::unique_ptr<GMainLoop, decltype(&g_main_loop_unref)> loop_{g_main_loop_new(nullptr, FALSE),
                                                                   g_main_loop_unref};
    std::optional<qandor::EventConsumer> consumer_{"watch-topic"};
    std::optional<qandor::Subscription> topic_;
};

} // namespace

int main(int count, char **words)
{
    if (count != 2) {
        std::cerr << "usage: watch-topic TOPIC\n";
        return EXIT_FAILURE;
    }
    Application(words[1]).run();
    return EXIT_SUCCESS;
}
