#include "tools/zobiconnect/CommandLine.h"

#include <algorithm>

namespace zobi::tool {

namespace {

std::string quoted(const std::string& word) {
    return '"' + word + '"';
}

/// Those that are neither arguments nor options, without the end of the options.
std::vector<std::string> unknownWords(const CLI::App& app) {
    auto words = app.remaining();
    std::erase(words, "--");
    return words;
}

/// @param word neither an argument nor an option of the command, or of the tool if there is no command.
std::string unknownWordText(const CLI::App& tool, const CLI::App* command, const std::string& word) {
    if (word.starts_with('-')) {
        return quoted(word) + " is not an option of " + (command ? command : &tool)->get_name();
    }
    if (command) return tooManyText(*command, word);
    return quoted(word) + " is none of the commands " + listed(commandNames(tool));
}

/// @param told what CLI11 says, which begins with the name of the option, or of the flag without its hyphens.
std::string valueCountText(const CLI::App& command, const std::string& told) {
    const std::string name = told.substr(0, told.find_first_of(": "));
    if (told.find("flag override") != std::string::npos) return "--" + name + ": takes no value";
    if (told.find("At Most") != std::string::npos) return name + ": given more than once";
    const CLI::Option* const option = command.get_option_no_throw(name);
    if (!option) return told;
    const std::string& wanted = option->get_option_text();
    return name + ": " + wanted.substr(0, wanted.find(' ')) + " is missing";
}

}  // namespace

CLI::Validator isSeconds(double smallest) {
    const auto check = [smallest](const std::string& text) -> std::string {
        // Nothing that is not finite lies in these bounds.
        if (numberIn(text, smallest, longestTime)) return "";
        return quoted(text) + " is not a number of seconds from " + numberText(smallest) + " to " +
               numberText(longestTime);
    };
    return {check, "", "seconds"};
}

CLI::Validator isOneOf(const std::vector<std::string>& names) {
    const auto check = [names](const std::string& text) -> std::string {
        if (std::ranges::find(names, text) != names.end()) return "";
        return quoted(text) + " is none of " + listed(names);
    };
    return {check, "", "name"};
}

void addFormatOption(CLI::App& command, std::string& format, const std::string& forPeople) {
    // 'jsonl' is accepted as another name for 'json'.
    const auto nameJson = [](const std::string& text) { return text == "jsonl" ? "json" : text; };
    std::string help = '\'' + forPeople + "', or 'json': one object a line";
    if (format.empty()) {
        help +=
            ".\nWithout it: a table if stdout is a terminal, else json. If the log goes\n"
            "to that terminal too, tables are printed one after another";
    }
    command.add_option("--format", format, help)
        ->check(isOneOf({forPeople, "json"}))
        ->transform(nameJson)
        ->option_text(format.empty() ? "FORMAT" : "FORMAT [" + format + ']');
}

void addDurationOption(CLI::App& command, std::optional<double>& duration) {
    command.add_option("--for", duration, "End after so much time")
        ->check(isSeconds())
        ->option_text("SECONDS");
}

std::vector<std::string> commandNames(const CLI::App& tool) {
    std::vector<std::string> names;
    for (const CLI::App* const command : tool.get_subcommands(nullptr)) names.push_back(command->get_name());
    return names;
}

std::string tooManyText(const CLI::App& command, const std::string& word) {
    return quoted(word) + " is one argument too many for " + command.get_name();
}

std::string mistakeText(const CLI::App& tool, const CLI::ParseError& error) {
    const auto commands = tool.get_subcommands();
    const CLI::App* const command = commands.empty() ? nullptr : commands.front();
    if (const auto words = unknownWords(tool); !words.empty()) {
        return unknownWordText(tool, nullptr, words.front());
    }
    if (command) {
        const auto words = unknownWords(*command);
        if (!words.empty()) return unknownWordText(tool, command, words.front());
    }
    if (error.get_name() == "ArgumentMismatch")
        return valueCountText(command ? *command : tool, error.what());
    if (!command) return "COMMAND is required";
    return error.what();
}

}  // namespace zobi::tool
