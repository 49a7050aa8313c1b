#include "tools/zobiconnect/radio/MachineRadio.h"

#include "tools/zobiconnect/terminal/Console.h"

#ifdef ZOBI_BLUEZ

#include "tools/zobiconnect/text/Text.h"
#include "zobi/platform/CBCentralManager.h"
#include "zobi/platform/bluez/BlueZPlatform.h"

namespace zobi::tool {

namespace {

using platform::CBCentralManager;
using platform::CBManagerState;

constexpr const char* help = ": 'zobiconnect doctor' tells why, and --radio simulated needs none";

class StateListener final : public platform::CBCentralManagerDelegate {
public:
    explicit StateListener(platform::RunLoop& runLoop) : runLoop_(runLoop) {}

    void centralManagerDidUpdateState(CBCentralManager& /*central*/) override { runLoop_.stop(); }

private:
    platform::RunLoop& runLoop_;
};

std::string obstacle(CBManagerState state) {
    switch (state) {
        case CBManagerState::poweredOff:
            return "Bluetooth is off";
        case CBManagerState::unauthorized:
            return "this user may not use Bluetooth";
        default:
            return "this machine has no Bluetooth that can be used";
    }
}

}  // namespace

std::unique_ptr<platform::Platform> makeMachineRadio(const std::string& adapter, bool log,
                                                     std::optional<double> patience) {
    auto platform = std::make_unique<platform::bluez::BlueZPlatform>(platform::bluez::BlueZOptions{adapter});
    // Why the radio cannot be used is told by the failure.
    if (!log) platform->log().setSink(nullptr);
    const auto listener = std::make_shared<StateListener>(platform->runLoop());
    const auto central = platform->makeCentralManager(listener);
    bool isOver = false;
    std::shared_ptr<platform::NSTimer> deadline;
    if (patience) {
        deadline = platform->runLoop().after(*patience, [&isOver, &runLoop = platform->runLoop()] {
            isOver = true;
            runLoop.stop();
        });
    }
    while (central->state() == CBManagerState::unknown && !isOver) platform->runLoop().run();
    if (deadline) deadline->invalidate();
    if (central->state() == CBManagerState::unknown) {
        throw Failure("Bluetooth gave no answer within " + numberText(*patience) + " s" + help);
    }
    if (central->state() != CBManagerState::poweredOn) {
        throw Failure(obstacle(central->state()) + help);
    }
    if (!log) platform->log().setMessageSink(tellMessage);
    return platform;
}

}  // namespace zobi::tool

#else

namespace zobi::tool {

std::unique_ptr<platform::Platform> makeMachineRadio(const std::string& /*adapter*/, bool /*log*/,
                                                     std::optional<double> /*patience*/) {
    throw Failure("this tool was built without the radio of this machine");
}

}  // namespace zobi::tool

#endif
