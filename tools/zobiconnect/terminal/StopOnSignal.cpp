#include "tools/zobiconnect/terminal/StopOnSignal.h"

#include <array>
#include <atomic>
#include <csignal>

namespace zobi::tool {

namespace {

constexpr std::array signals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};
std::atomic<platform::RunLoop*> stoppedRunLoop = nullptr;
std::atomic<bool> isSignalled = false;

void stopRunLoop(int /*signal*/) {
    isSignalled = true;
    if (platform::RunLoop* const runLoop = stoppedRunLoop) runLoop->stop();
}

bool isIgnored(int signal) {
    struct sigaction action {};
    ::sigaction(signal, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

}  // namespace

StopOnSignal::StopOnSignal(platform::RunLoop& runLoop) {
    stoppedRunLoop = &runLoop;
    isSignalled = false;
    struct sigaction action {};
    action.sa_handler = stopRunLoop;
    // Output that is being written is not cut short.
    action.sa_flags = SA_RESTART;
    for (const int signal : signals) {
        if (!isIgnored(signal)) ::sigaction(signal, &action, nullptr);
    }
}

StopOnSignal::~StopOnSignal() {
    for (const int signal : signals) {
        if (!isIgnored(signal)) ::signal(signal, SIG_DFL);
    }
    stoppedRunLoop = nullptr;
}

bool StopOnSignal::take() {
    return isSignalled.exchange(false);
}

}  // namespace zobi::tool
