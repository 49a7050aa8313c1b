#include "RunTool.h"

#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace zobi::tool {

using nlohmann::json;

Tool::Tool(Arguments arguments, std::optional<winsize> terminal) {
    std::array<int, 2> ends{};
    const int opened = terminal ? ::openpty(ends.data(), ends.data() + 1, nullptr, nullptr, &*terminal)
                                : ::pipe(ends.data());
    if (opened != 0) throw std::system_error(errno, std::generic_category(), "no terminal or pipe");
    ::setenv("TERM", "xterm", 1);
    arguments.insert(arguments.begin(), ZOBI_TOOL_PATH);
    std::vector<char*> pointers;
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    process_ = ::fork();
    if (process_ == 0) {
        ::close(ends[0]);
        ::dup2(ends[1], STDOUT_FILENO);
        ::dup2(ends[1], STDERR_FILENO);
        ::close(ends[1]);
        ::execv(ZOBI_TOOL_PATH, pointers.data());
        ::_exit(127);
    }
    ::close(ends[1]);
    output_ = ends[0];
}

Tool::~Tool() {
    if (process_ > 0) {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }
    ::close(output_);
}

bool Tool::signalAfter(const std::string& text, int signal) {
    while (written.find(text) == std::string::npos) {
        if (!readSome()) return false;
    }
    return ::kill(process_, signal) == 0;
}

int Tool::end() {
    // A tool that writes more does not stop at its time.
    constexpr std::size_t tooMuch = 2'000'000;
    while (readSome()) {
        if (written.size() > tooMuch) ::kill(process_, SIGKILL);
    }
    int status = 0;
    const pid_t process = std::exchange(process_, -1);
    EXPECT_EQ(::waitpid(process, &status, 0), process);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool Tool::readSome() {
    std::array<char, 4096> buffer{};
    const ssize_t count = ::read(output_, buffer.data(), buffer.size());
    if (count > 0) written.append(buffer.data(), static_cast<std::size_t>(count));
    return count > 0;
}

std::string outputOf(Arguments arguments, int status) {
    Tool tool(std::move(arguments));
    EXPECT_EQ(tool.end(), status) << tool.written;
    return tool.written;
}

std::string outputOnScenario(Arguments arguments, const std::string& file, int status) {
    arguments.insert(arguments.end(), {"--virtual-time", "--scenario", ZOBI_SOURCES "/" + file});
    return outputOf(std::move(arguments), status);
}

std::vector<json> eventsOf(const std::string& output) {
    std::vector<json> events;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);) events.push_back(json::parse(line));
    if (events.empty()) throw std::runtime_error("the tool wrote nothing");
    return events;
}

}  // namespace zobi::tool
