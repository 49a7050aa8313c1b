#include "tools/zobiconnect/terminal/StopOnSignal.h"

#include <array>
#include <atomic>
#include <csignal>

namespace zobi::tool {

namespace {

constexpr std::array signals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};
std::atomic<platform::RunLoop*> stoppedRunLoop = nullptr;
std::atomic<bool> hasCome = false;

void stopRunLoop(int /*signal*/) {
    hasCome = true;
    if (platform::RunLoop* const runLoop = stoppedRunLoop) runLoop->stop();
}

}  // namespace

StopOnSignal::StopOnSignal(platform::RunLoop& runLoop) {
    stoppedRunLoop = &runLoop;
    hasCome = false;
    struct sigaction action {};
    action.sa_handler = stopRunLoop;
    // Output that is being written is not cut short.
    action.sa_flags = SA_RESTART;
    for (const int signal : signals) ::sigaction(signal, &action, nullptr);
}

StopOnSignal::~StopOnSignal() {
    for (const int signal : signals) ::signal(signal, SIG_DFL);
    stoppedRunLoop = nullptr;
}

bool StopOnSignal::take() {
    return hasCome.exchange(false);
}

}  // namespace zobi::tool
