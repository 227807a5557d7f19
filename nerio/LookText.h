#pragma once

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "nerio/SwitchLook.h"

/* What a look at a kept switch finds, as text and in JSON. */
namespace Nerio {

/** Lines of cells in columns of one width each; the last column is as wide as it is. */
template <std::size_t columns>
class Grid {
public:
    using Cells = std::array<std::string, columns>;

    void add(Cells cells) {
        for (std::size_t i = 0; i + 1 < columns; ++i)
            widths_[i] = std::max(widths_[i], cells[i].size());
        lines_.push_back(std::move(cells));
    }
    std::string text() const {
        std::string text;
        for (auto const& cells : lines_) {
            std::string line;
            for (std::size_t i = 0; i + 1 < columns; ++i)
                fmt::format_to(std::back_inserter(line), "{:<{}}  ", cells[i], widths_[i]);
            line += cells.back();
            text.append(line, 0, line.find_last_not_of(' ') + 1);
            text += '\n';
        }
        return text;
    }

private:
    std::array<std::size_t, columns> widths_{};
    std::vector<Cells> lines_;
};

/** A line of headings, and one for each table: entries, rows in use and how full that is, and its moves. */
std::string tablesText(std::vector<TableLook> const& tables);
/** "[###.......]  30 %", and whether that is nearly full. */
std::string fillText(TableLook const& look);
Agent::Json toJson(TableLook const& look);

}  // namespace Nerio
