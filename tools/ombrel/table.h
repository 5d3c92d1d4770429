// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Rows of cells: aligned under a head where a person looks at them, a line each with tabs between the cells
// everywhere else. What strangers sent may stand in cells: it is made safe here.
#pragma once

#include <string>
#include <vector>

#include "tools/ombrel/terminal.h"

namespace ombrel {

struct Cell {
    std::string text;
    Colour colour = Colour::kPlain;
};

enum class Align { kLeft, kRight };

struct Column {
    std::string head;
    Align align = Align::kLeft;
};

class Table {
public:
    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}
    /// As many cells as there are columns; an empty one shows as "-".
    void add(std::vector<Cell> row);
    [[nodiscard]] bool isEmpty() const { return rows_.empty(); }
    /// All lines with their ends. On a terminal the last column is cut to its width.
    [[nodiscard]] std::string text(const Terminal& terminal) const;

private:
    [[nodiscard]] std::string aligned(const Terminal& terminal) const;

    std::vector<Column> columns_;
    std::vector<std::vector<Cell>> rows_;
};

}  // namespace ombrel
