// SPDX-License-Identifier: LGPL-2.1-or-later

// Rows in columns that fit the terminal: what is too wide goes on in the next line of its column,
// so that nothing is lost.
#pragma once

#include "cli/terminal.hpp"

#include <string>
#include <vector>

namespace qandor::cli {

struct Cell {
    Cell(std::string content, Style in = Style::Plain) : text(std::move(content)), style(in) {}
    Cell(const char *content) : text(content) {}

    std::string text;
    Style style = Style::Plain;
};

class Table {
public:
    // Titles in capitals; none at all for a table without a head line.
    explicit Table(std::vector<std::string> titles = {}) : titles_(std::move(titles)) {}

    void add(std::vector<Cell> cells) { rows_.push_back(std::move(cells)); }
    bool empty() const { return rows_.empty(); }
    std::vector<std::string> lines() const;
    void print() const;

private:
    std::vector<std::size_t> widths() const;

    std::vector<std::string> titles_;
    std::vector<std::vector<Cell>> rows_;
};

// The text in lines of at most so many columns (0: any), broken at blanks and slashes where it can.
std::vector<std::string> wrapped(std::string_view text, std::size_t columns);

} // namespace qandor::cli
