#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace zobi::tool {

/// The terminal's whole screen, from its making to its end, which gives back the screen as it was.
class Screen {
public:
    struct Size {
        std::size_t rows;
        std::size_t columns;
    };

    enum class Style { plain, heading, faint };

    struct Line {
        std::string text;
        Style style = Style::plain;
    };

    /// Whether stdout is a terminal that can be drawn on.
    static bool isAvailable();

    Screen();
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    static Size size();

    /// Shows the lines, ASCII texts, in place of what stood there, and cuts off what has no room.
    static void show(const std::vector<Line>& lines);

    /// Without a screen: prints the texts of the lines, and an empty line after them.
    static void print(const std::vector<Line>& lines);
};

}  // namespace zobi::tool
