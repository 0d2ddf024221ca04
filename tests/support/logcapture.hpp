// SPDX-License-Identifier: LGPL-2.1-or-later

// Keeps the log messages of its lifetime instead of printing them.
#pragma once

#include <glib.h>

#include <mutex>
#include <string>
#include <vector>

namespace qandor::test {

class LogCapture {
public:
    struct Line {
        GLogLevelFlags level;
        std::string text;
    };

    LogCapture() { former_ = g_log_set_default_handler(receive, this); }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;
    ~LogCapture() { g_log_set_default_handler(former_, nullptr); }

    std::vector<std::string> texts(GLogLevelFlags level) const
    {
        std::lock_guard lock(mutex_);
        std::vector<std::string> texts;
        for (const Line &line : lines_)
            if (line.level & level)
                texts.push_back(line.text);
        return texts;
    }
    std::vector<std::string> criticals() const { return texts(G_LOG_LEVEL_CRITICAL); }
    std::vector<std::string> warnings() const { return texts(G_LOG_LEVEL_WARNING); }
    std::vector<std::string> messages() const { return texts(G_LOG_LEVEL_MESSAGE); }

private:
    static void receive(const gchar *, GLogLevelFlags level, const gchar *text, gpointer self)
    {
        auto *capture = static_cast<LogCapture *>(self);
        std::lock_guard lock(capture->mutex_);
        capture->lines_.push_back({level, text});
    }

    mutable std::mutex mutex_;
    std::vector<Line> lines_;
    GLogFunc former_;
};

} // namespace qandor::test
