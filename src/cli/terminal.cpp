// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/terminal.hpp"

#include "cli/failure.hpp"

#include <glib.h>

#include <clocale>
#include <cstdlib>
#include <sys/ioctl.h>
#include <unistd.h>

namespace qandor::cli {
namespace {

struct Terminal {
    bool colours[2] = {}; // of the standard output and the standard error
    std::size_t width = 0;
    bool unicode = false;
};
Terminal terminal;

bool knows_sequences(int descriptor)
{
    const char *kind = std::getenv("TERM");
    return isatty(descriptor) && kind && !g_str_equal(kind, "dumb");
}

bool takes_colours(int descriptor)
{
    const char *forbids = std::getenv("NO_COLOR");
    return knows_sequences(descriptor) && !(forbids && *forbids);
}

std::size_t find_width()
{
    guint64 columns = 0;
    const char *said = std::getenv("COLUMNS");
    if (said && g_ascii_string_to_unsigned(said, 10, 20, 10000, &columns, nullptr))
        return columns;
    winsize size{};
    if (isatty(STDOUT_FILENO) && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0)
        return size.ws_col < 20 ? 80 : size.ws_col;
    return 0;
}

const char *sequence_of(Style style)
{
    switch (style) {
    case Style::Plain:
        break;
    case Style::Bold:
        return "\033[1m";
    case Style::Dim:
        return "\033[2m";
    case Style::Red:
        return "\033[31m";
    case Style::Green:
        return "\033[32m";
    case Style::Yellow:
        return "\033[33m";
    case Style::Cyan:
        return "\033[36m";
    }
    return "";
}

// The character at the beginning of a text that is not empty; a byte that is none counts as one.
struct Character {
    explicit Character(std::string_view text)
    {
        code = g_utf8_get_char_validated(text.data(), static_cast<gssize>(text.size()));
        is_valid = code < 0x80000000u && code != 0;
        length = is_valid ? static_cast<std::size_t>(g_unichar_to_utf8(code, nullptr)) : 1;
        columns = !is_valid ? 1 : g_unichar_iszerowidth(code) ? 0 : g_unichar_iswide(code) ? 2 : 1;
    }

    gunichar code;
    bool is_valid;
    std::size_t length;
    std::size_t columns;
};

} // namespace

void look_at_terminal()
{
    // Of the locale the character set alone: numbers keep their point.
    std::setlocale(LC_CTYPE, "");
    terminal.colours[0] = takes_colours(STDOUT_FILENO);
    terminal.colours[1] = takes_colours(STDERR_FILENO);
    terminal.width = find_width();
    terminal.unicode = g_get_charset(nullptr);
}

std::string styled(Style style, const std::string &text, std::FILE *stream)
{
    if (style == Style::Plain || text.empty() || !terminal.colours[stream == stdout ? 0 : 1])
        return text;
    return sequence_of(style) + text + "\033[0m";
}

std::size_t output_width()
{
    return terminal.width;
}

bool draws_in_unicode()
{
    return terminal.unicode;
}

bool is_live()
{
    return knows_sequences(STDOUT_FILENO);
}

std::size_t output_height()
{
    winsize size{};
    bool is_told = isatty(STDOUT_FILENO) && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0;
    return is_told ? size.ws_row : 0;
}

std::size_t columns_of(std::string_view text)
{
    std::size_t columns = 0;
    while (!text.empty()) {
        Character character(text);
        columns += character.columns;
        text.remove_prefix(character.length);
    }
    return columns;
}

std::size_t fitting(std::string_view text, std::size_t columns)
{
    std::size_t length = 0, taken = 0;
    while (length < text.size()) {
        Character character(text.substr(length));
        taken += character.columns;
        if (taken > columns && length > 0)
            break;
        length += character.length;
    }
    return length;
}

std::string printable(std::string_view text)
{
    std::string made;
    while (!text.empty()) {
        Character character(text);
        bool shows = character.is_valid && !g_unichar_iscntrl(character.code) &&
                     g_unichar_type(character.code) != G_UNICODE_FORMAT;
        for (char byte : text.substr(0, character.length)) {
            char escaped[8];
            g_snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<guint8>(byte));
            made += shows ? std::string(1, byte) : escaped;
        }
        text.remove_prefix(character.length);
    }
    return made;
}

std::string printable_word(std::string_view text)
{
    std::string word = printable(text);
    if (!word.empty() && word.find_first_of(" '\"") == std::string::npos)
        return word;
    return word.find('\'') == std::string::npos ? "'" + word + "'" : "\"" + word + "\"";
}

void print(const std::string &text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
}

void print_line(const std::string &text)
{
    print(text + "\n");
}

void note(const std::string &text)
{
    std::fflush(stdout);
    std::fprintf(stderr, "qandor: %s\n", text.c_str());
}

void finish_output()
{
    bool written = std::fflush(stdout) == 0 && !std::ferror(stdout);
    if (!written)
        throw Failure(EX_IOERR, "The output cannot be written");
}

} // namespace qandor::cli
