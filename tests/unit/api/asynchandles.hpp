// SPDX-License-Identifier: LGPL-2.1-or-later

// A diary of what the asynchronous handles tell, and a fixture without a bus.
#pragma once

#include "support/logcapture.hpp"
#include "support/mainloop.hpp"
#include "support/records.hpp"

#include <gtest/gtest.h>

#include <thread>

namespace qandor::test {

// The code and the text of an error, which is cleared.
inline std::string take(GError *error)
{
    Owned<GError> owner(error);
    return error ? std::to_string(error->code) + " " + error->message : "fine";
}

// What was told, in order, all of it on the thread that made the diary.
struct Diary {
    std::vector<std::string> lines;
    std::thread::id thread = std::this_thread::get_id();
    event *sent_event = nullptr;

    static void write(gpointer self, const std::string &line)
    {
        EXPECT_EQ(static_cast<Diary *>(self)->thread, std::this_thread::get_id());
        static_cast<Diary *>(self)->lines.push_back(line);
    }
    static std::string number(const char *what, guint32 number)
    {
        return what + (" " + std::to_string(number));
    }

    template <class Handle> static void setup(Handle *, gpointer self, GError *error)
    {
        EXPECT_STREQ(error ? g_quark_to_string(error->domain) : "", "libqandor");
        write(self, "setup: " + take(error));
    }
    static void declared(guint32 id, gpointer self) { write(self, number("declared", id)); }
    static void complete(guint32 id, gpointer self) { write(self, number("complete", id)); }
    static void undeclared(guint32 id, gpointer self, GError *error)
    {
        write(self, number("undeclared", id) + ": " + take(error));
    }
    static void sent(guint32 id, event *event, gpointer self, GError *error)
    {
        static_cast<Diary *>(self)->sent_event = event;
        write(self, number("sent", id) + ": " + take(error));
    }
    static void subscribed(guint32 token, gpointer self)
    {
        write(self, number("subscribed", token));
    }
    static void refreshed(guint32 token, gpointer self, GError *error)
    {
        write(self, number("refreshed", token) + ": " + take(error));
    }
    static void unsubscribed(guint32 token, gpointer self, GError *error)
    {
        write(self, number("unsubscribed", token) + ": " + take(error));
    }
    template <class Handle> static void freed(Handle *, gpointer self) { write(self, "freed"); }
};

class AsyncHandlesTest : public testing::Test {
protected:
    AsyncHandlesTest() { setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1); }
    ~AsyncHandlesTest() override
    {
        run_pending();
        unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    }

    LogCapture log;
    Diary diary;
    GError *error = nullptr;
};

} // namespace qandor::test
