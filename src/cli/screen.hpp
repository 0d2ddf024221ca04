// SPDX-License-Identifier: LGPL-2.1-or-later

// The terminal as a page that is drawn again and again, with keys that are read as they are
// pressed. Afterwards it is as it was.
#pragma once

#include <glib.h>

#include <functional>
#include <string>
#include <termios.h>
#include <vector>

namespace qandor::cli {

class Screen {
public:
    // The function is called for each key from the main loop.
    explicit Screen(std::function<void(char)> key);
    Screen(const Screen &) = delete;
    Screen &operator=(const Screen &) = delete;
    ~Screen();

    // Draws the lines, as many as there is room for.
    static void draw(const std::vector<std::string> &lines);

private:
    void read_keys();
    static gboolean receive(gint file, GIOCondition condition, gpointer screen);

    std::function<void(char)> key_;
    termios before_{};
    guint source_ = 0;
};

} // namespace qandor::cli
