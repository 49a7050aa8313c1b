#pragma once

#include <string>
#include <vector>

namespace zobi::tool {

struct Column {
    enum class Alignment { left, right };

    /// Stands above the titles of the neighbours that share it; may be empty.
    std::string group;
    std::string title;
    Alignment alignment = Alignment::left;
};

/// Lines of a table as wide as its cells, each byte taking one column: the groups if there are any, the
/// titles, the rows.
std::vector<std::string> formatTable(const std::vector<Column>& columns,
                                     const std::vector<std::vector<std::string>>& rows);

}  // namespace zobi::tool
