#include "StackBench.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

using namespace zobi::platform;

std::string ask(const std::string& part, const std::string& line) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ("/run/testbed/" + part).copy(address.sun_path, sizeof address.sun_path - 1);
    std::array<char, 1024> answer{};
    const int socket = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    ssize_t size = -1;
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        ::send(socket, line.data(), line.size(), MSG_NOSIGNAL) >= 0) {
        size = ::recv(socket, answer.data(), answer.size(), 0);
    }
    ::close(socket);
    const std::string text(answer.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    if (!text.starts_with("ok")) throw std::runtime_error(part + ": " + line + ": " + text);
    return text.substr(std::min<std::size_t>(text.size(), 3));
}

std::string digitsOf(const std::vector<std::uint8_t>& bytes) {
    std::string text;
    for (const unsigned byte : bytes) {
        std::array<char, 3> digits{};
        std::snprintf(digits.data(), digits.size(), "%02X", byte);
        text += digits.data();
    }
    return text;
}

double numberIn(const char* variable, double otherwise) {
    const char* const text = std::getenv(variable);
    return text ? std::stod(text) : otherwise;
}

namespace {

std::string testName() {
    const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
    return std::string(test->test_suite_name()) + '.' + test->name();
}

}  // namespace

StackBench::StackBench(const std::string& duplicateFilter) : fresh_(ask("stack", "fresh " + testName())) {
    ask("air", "dedup 0 " + duplicateFilter);
}

void StackBench::beaconFallsSilent() {
    ask("stack", "settle");
    ask("air", "silent 1 on");
}

void StackBench::setValue(const CBUUID& characteristic, std::vector<std::uint8_t> value) {
    ask("beacon", "set " + characteristic.UUIDString() + ' ' + digitsOf(value));
}

std::vector<std::uint8_t> StackBench::value(const CBUUID& characteristic) {
    const std::string digits = ask("beacon", "get " + characteristic.UUIDString());
    std::vector<std::uint8_t> value;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        value.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return value;
}
