#pragma once

#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <sys/types.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zobi::tool {

using Arguments = std::vector<std::string>;

// Where a wall clock in virtual time starts.
inline constexpr double startTime = 1'704'067'200;

/// The tool as a process of its own, its stdout and stderr on one pipe or, of the size given, terminal.
class Tool {
public:
    explicit Tool(Arguments arguments, std::optional<winsize> terminal = std::nullopt);
    /// Kills the process if it has not ended.
    ~Tool();
    Tool(const Tool&) = delete;
    Tool& operator=(const Tool&) = delete;

    /// Waits until the tool has written `text`, and then sends it a signal. False when it ends without.
    bool signalAfter(const std::string& text, int signal);

    /// Reads to the end. @returns the exit status, or -1 when a signal ended the process.
    int end();

    /// All that was read so far.
    std::string written;

private:
    bool readSome();

    /// -1 once it has ended.
    pid_t process_ = -1;
    int output_ = -1;
};

/// What the tool writes, once it has ended with `status`.
std::string outputOf(Arguments arguments, int status = 0);

/// What the tool writes in virtual time about a scenario, once it has ended with `status`.
/// @param file its path from the top of the tree.
std::string outputOnScenario(Arguments arguments, const std::string& file, int status = 0);

/// The JSON objects in the lines of what the tool wrote.
/// @throws std::exception, which fails the test, when there is no line, or one that is no JSON.
std::vector<nlohmann::json> eventsOf(const std::string& output);

}  // namespace zobi::tool
