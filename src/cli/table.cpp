// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/table.hpp"

#include <algorithm>
#include <numeric>
#include <utility>

namespace qandor::cli {
namespace {

constexpr std::size_t gap = 2;
constexpr std::size_t least_width = 6;

std::string padded(const std::string &text, std::size_t width)
{
    std::size_t columns = columns_of(text);
    return columns < width ? std::string(width - columns, ' ') : "";
}

} // namespace

std::vector<std::string> wrapped(std::string_view text, std::size_t columns)
{
    std::vector<std::string> lines;
    while (columns > 0 && columns_of(text) > columns) {
        std::size_t end = fitting(text, columns);
        // A blank may stand right behind the line, a slash stays in it.
        std::size_t blank = text.rfind(' ', end);
        std::size_t slash = text.rfind('/', end - 1);
        if (blank != std::string_view::npos && blank > 0)
            end = blank;
        else if (slash != std::string_view::npos && slash > 0)
            end = slash + 1;
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(end);
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    }
    lines.emplace_back(text);
    return lines;
}

namespace {

// The lines that each cell of a row takes.
std::vector<std::vector<std::string>> parts_of(const std::vector<Cell> &cells,
                                               const std::vector<std::size_t> &widths)
{
    std::vector<std::vector<std::string>> parts;
    for (std::size_t i = 0; i < cells.size(); ++i)
        parts.push_back(wrapped(cells[i].text, output_width() == 0 ? 0 : widths[i]));
    return parts;
}

void add_lines(std::vector<std::string> &lines, const std::vector<Cell> &cells,
               const std::vector<std::size_t> &widths)
{
    std::vector<std::vector<std::string>> parts = parts_of(cells, widths);
    std::size_t height = 0;
    for (const auto &part : parts)
        height = std::max(height, part.size());
    for (std::size_t at = 0; at < height; ++at) {
        std::string line, waiting;
        for (std::size_t i = 0; i < cells.size(); ++i) {
            std::string part = at < parts[i].size() ? parts[i][at] : "";
            if (!part.empty())
                line += std::exchange(waiting, "") + styled(cells[i].style, part);
            waiting += padded(part, widths[i]) + std::string(gap, ' ');
        }
        lines.push_back(line);
    }
}

} // namespace

// The natural widths; the widest gives way until all of them fit.
std::vector<std::size_t> Table::widths() const
{
    std::vector<std::size_t> widths;
    auto consider = [&](std::size_t i, const std::string &text) {
        widths.resize(std::max(widths.size(), i + 1));
        widths[i] = std::max(widths[i], columns_of(text));
    };
    for (std::size_t i = 0; i < titles_.size(); ++i)
        consider(i, titles_[i]);
    for (const auto &row : rows_)
        for (std::size_t i = 0; i < row.size(); ++i)
            consider(i, row[i].text);
    if (output_width() == 0 || widths.empty())
        return widths;
    std::size_t gaps = gap * (widths.size() - 1);
    for (;;) {
        std::size_t sum = std::accumulate(widths.begin(), widths.end(), gaps);
        auto widest = std::max_element(widths.begin(), widths.end());
        if (sum <= output_width() || *widest <= least_width)
            return widths;
        --*widest;
    }
}

std::vector<std::string> Table::lines() const
{
    std::vector<std::size_t> columns = widths();
    std::vector<std::string> lines;
    if (!titles_.empty()) {
        std::vector<Cell> head;
        for (const std::string &title : titles_)
            head.emplace_back(title, Style::Bold);
        add_lines(lines, head, columns);
    }
    for (const auto &row : rows_)
        add_lines(lines, row, columns);
    return lines;
}

void Table::print() const
{
    for (const std::string &line : lines())
        print_line(line);
}

} // namespace qandor::cli
