// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/table.h"

#include <algorithm>
#include <utility>

#include "linux/common/progress_bar.h"
#include "linux/common/text_escape.h"

namespace ombrel {

namespace {

/// Characters, not bytes; all of them are taken for one column wide.
std::size_t widthOf(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

std::string padded(const std::string& text, std::size_t width, Align align, std::size_t shown) {
    const std::string blanks(width > shown ? width - shown : 0, ' ');
    return align == Align::kLeft ? text + blanks : blanks + text;
}

}  // namespace

void Table::add(std::vector<Cell> row) {
    for (Cell& cell : row)
        cell.text = cell.text.empty() ? "-" : escapeForLine(cell.text);
    rows_.push_back(std::move(row));
}

std::string Table::aligned(const Terminal& terminal) const {
    std::vector<std::size_t> widths;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        std::size_t width = widthOf(columns_[i].head);
        for (const auto& row : rows_)
            width = std::max(width, widthOf(row[i].text));
        widths.push_back(width);
    }
    const std::size_t last = columns_.size() - 1;
    const auto lineOf = [&](const auto& cellAt) {
        std::string line;
        std::size_t used = 0;
        for (std::size_t i = 0; i < last; ++i) {
            const Cell cell = cellAt(i);
            line += padded(painted(terminal, cell.colour, cell.text), widths[i], columns_[i].align,
                           widthOf(cell.text)) +
                    "  ";
            used += widths[i] + 2;
        }
        Cell cell = cellAt(last);
        const auto columns = static_cast<std::size_t>(terminal.columns);
        if (columns > used + 10) cell.text = cutToColumns(cell.text, columns - used);
        const std::size_t width = columns_[last].align == Align::kRight ? widths[last] : 0;
        line += padded(painted(terminal, cell.colour, cell.text), width, columns_[last].align, widthOf(cell.text));
        return line + '\n';
    };
    std::string text = lineOf([&](std::size_t i) { return Cell{columns_[i].head, Colour::kBold}; });
    for (const auto& row : rows_)
        text += lineOf([&](std::size_t i) { return row[i]; });
    return text;
}

std::string Table::text(const Terminal& terminal) const {
    if (rows_.empty()) return {};
    if (terminal.isTerminal) return aligned(terminal);
    std::string text;
    for (const auto& row : rows_) {
        for (std::size_t i = 0; i < row.size(); ++i)
            text += (i == 0 ? "" : "\t") + painted(terminal, row[i].colour, row[i].text);
        text += '\n';
    }
    return text;
}

}  // namespace ombrel
