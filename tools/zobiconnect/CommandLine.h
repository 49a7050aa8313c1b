#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/zobiconnect/text/Text.h"

namespace zobi::tool {

// What stands on the command line. CLI11 itself would wrap, clamp or round some of it in silence. Mistakes
// are told in one style: where, what was given, and what is wanted.

/// A number of seconds from `smallest` to `longestTime`.
CLI::Validator isSeconds(double smallest = 0);

/// A whole number in these bounds. To be a transformation: it removes leading zeros, which CLI11 takes for
/// another base.
template <typename Integer>
CLI::Validator wholeNumber(Integer smallest, Integer largest) {
    const auto read = [=](std::string& text) -> std::string {
        const auto number = numberIn(text, smallest, largest);
        if (!number) {
            return '"' + text + "\" is not a whole number from " + std::to_string(smallest) + " to " +
                   std::to_string(largest);
        }
        text = std::to_string(*number);
        return "";
    };
    return {read, "", "number"};
}

CLI::Validator isOneOf(const std::vector<std::string>& names);

/// Adds --format to a command: something for people, or JSON.
/// @param format its value by default; empty if that depends on what stdout is. It must outlive the command.
/// @param forPeople what the format for people is called.
void addFormatOption(CLI::App& command, std::string& format, const std::string& forPeople);

/// Adds --for to a command that otherwise has no end.
/// @param duration must outlive the command.
void addDurationOption(CLI::App& command, std::optional<double>& duration);

std::vector<std::string> commandNames(const CLI::App& tool);

/// Says that a command takes no argument in this place.
std::string tooManyText(const CLI::App& command, const std::string& word);

/// What is wrong with a command line: one line.
std::string mistakeText(const CLI::App& tool, const CLI::ParseError& error);

}  // namespace zobi::tool
