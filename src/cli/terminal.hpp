// SPDX-License-Identifier: LGPL-2.1-or-later

// What is written to: whether it takes colours and line-drawing characters, how wide it is, and
// texts of strangers made harmless for it.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace qandor::cli {

enum class Style { Plain, Bold, Dim, Red, Green, Yellow, Cyan };

// Asks the environment once: NO_COLOR, TERM, COLUMNS, the locale's character set.
void look_at_terminal();

// The text in a style, as it is where the stream takes no colours.
std::string styled(Style style, const std::string &text, std::FILE *stream = stdout);

// Columns of the output; 0 when it is no terminal and COLUMNS does not say.
std::size_t output_width();
bool draws_in_unicode();
// Whether the output is a terminal on which the cursor can be moved, and its lines; 0 when it is no
// terminal.
bool is_live();
std::size_t output_height();

// The columns that a text takes.
std::size_t columns_of(std::string_view text);
// The length in bytes of the beginning that fits into so many columns; at least one character.
std::size_t fitting(std::string_view text, std::size_t columns);

// Control characters and bytes that are no UTF-8 as \xNN: nobody else's text moves the cursor.
std::string printable(std::string_view text);
// The same, in quotes where it is empty or has blanks in it.
std::string printable_word(std::string_view text);

// Writes to the standard output.
void print(const std::string &text);
void print_line(const std::string &text);
// Writes a note for people to the standard error.
void note(const std::string &text);

// Writes out what is still kept back; fails when any of the output could not be written.
void finish_output();

} // namespace qandor::cli
