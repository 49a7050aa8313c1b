#include "tools/zobiconnect/terminal/TextTable.h"

#include <algorithm>
#include <cstddef>

namespace zobi::tool {

namespace {

constexpr std::size_t gap = 2;

std::string padded(const std::string& text, std::size_t width, Column::Alignment alignment) {
    const std::string padding(width - std::min(width, text.size()), ' ');
    return alignment == Column::Alignment::left ? text + padding : padding + text;
}

/// The text between two rules, as far as there is room for them.
std::string centred(const std::string& text, std::size_t width) {
    const std::size_t rules = width < text.size() + 4 ? 0 : width - text.size() - 2;
    if (rules == 0) return padded(text, width, Column::Alignment::left);
    return std::string(rules / 2, '-') + ' ' + text + ' ' + std::string(rules - rules / 2, '-');
}

std::string trimmed(std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

/// The line above the titles. Widens the last column of a group that has no room for its name.
std::string groupLine(const std::vector<Column>& columns, std::vector<std::size_t>& widths) {
    std::string line;
    for (std::size_t i = 0; i < columns.size();) {
        const std::string& group = columns[i].group;
        std::size_t width = widths[i];
        for (++i; i < columns.size() && columns[i].group == group; ++i) width += gap + widths[i];
        if (width < group.size()) {
            widths[i - 1] += group.size() - width;
            width = group.size();
        }
        line += (group.empty() ? std::string(width, ' ') : centred(group, width)) + std::string(gap, ' ');
    }
    return trimmed(line);
}

}  // namespace

std::vector<std::string> formatTable(const std::vector<Column>& columns,
                                     const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        widths.push_back(columns[i].title.size());
        for (const auto& row : rows) widths[i] = std::max(widths[i], row[i].size());
    }
    std::vector<std::string> lines{groupLine(columns, widths)};
    if (lines.front().empty()) lines.clear();
    const auto append = [&](const auto& textOf) {
        std::string line;
        for (std::size_t i = 0; i < columns.size(); ++i) {
            line += padded(textOf(i), widths[i], columns[i].alignment) + std::string(gap, ' ');
        }
        lines.push_back(trimmed(line));
    };
    append([&](std::size_t i) { return columns[i].title; });
    for (const auto& row : rows) append([&](std::size_t i) { return row[i]; });
    return lines;
}

}  // namespace zobi::tool
