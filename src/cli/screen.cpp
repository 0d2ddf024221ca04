// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/screen.hpp"

#include "cli/terminal.hpp"

#include <glib-unix.h>

#include <algorithm>
#include <unistd.h>
#include <utility>

namespace qandor::cli {
namespace {

constexpr const char *take_page = "\033[?1049h\033[?25l";
constexpr const char *give_page_back = "\033[?25h\033[?1049l";

} // namespace

Screen::Screen(std::function<void(char)> key) : key_(std::move(key))
{
    read_keys();
    print(take_page);
    std::fflush(stdout);
}

Screen::~Screen()
{
    print(give_page_back);
    std::fflush(stdout);
    if (source_ == 0)
        return;
    g_source_remove(source_);
    tcsetattr(STDIN_FILENO, TCSANOW, &before_);
}

// Keys come at once and are not shown. Interrupting goes on working; who could suspend would leave
// the page behind.
void Screen::read_keys()
{
    if (!isatty(STDIN_FILENO) || tcgetattr(STDIN_FILENO, &before_) < 0)
        return;
    termios raw = before_;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    raw.c_cc[VSUSP] = _POSIX_VDISABLE;
    tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    source_ = g_unix_fd_add(STDIN_FILENO, G_IO_IN, receive, this);
}

gboolean Screen::receive(gint file, GIOCondition, gpointer screen)
{
    char key = 0;
    if (read(file, &key, 1) == 1)
        static_cast<Screen *>(screen)->key_(key);
    return G_SOURCE_CONTINUE;
}

void Screen::draw(const std::vector<std::string> &lines)
{
    std::size_t height = output_height();
    std::size_t count = height == 0 ? lines.size() : std::min(lines.size(), height);
    print("\033[H");
    for (std::size_t i = 0; i < count; ++i)
        print(lines[i] + "\033[K" + (i + 1 < count ? "\r\n" : ""));
    print("\033[J");
    std::fflush(stdout);
}

} // namespace qandor::cli
