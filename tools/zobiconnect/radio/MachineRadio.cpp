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

constexpr const char* help = " ('zobiconnect doctor' tells more, and --radio simulated needs none)";

class StateListener final : public platform::CBCentralManagerDelegate {
public:
    explicit StateListener(platform::RunLoop& runLoop) : runLoop_(runLoop) {}

    void centralManagerDidUpdateState(CBCentralManager& /*central*/) override { runLoop_.stop(); }

private:
    platform::RunLoop& runLoop_;
};

}  // namespace

std::unique_ptr<platform::Platform> makeMachineRadio(const std::string& adapter, bool log) {
    auto platform = std::make_unique<platform::bluez::BlueZPlatform>(platform::bluez::BlueZOptions{adapter});
    if (log) return platform;
    platform->log().setDiagnosticSink(nullptr);
    // Why the radio cannot be used is told by the command itself.
    platform->log().setMessageSink([&radio = *platform](std::string_view message) {
        if (message != "Bluetooth: " + radio.radioCondition().advice()) tellMessage(message);
    });
    return platform;
}

void expectPoweredOn(platform::Platform& platform, std::optional<double> patience) {
    platform::RunLoop& runLoop = platform.runLoop();
    const auto listener = std::make_shared<StateListener>(runLoop);
    const auto central = platform.makeCentralManager(listener);
    bool isOver = false;
    std::shared_ptr<platform::NSTimer> deadline;
    if (patience) {
        deadline = runLoop.after(*patience, [&isOver, &runLoop] {
            isOver = true;
            runLoop.stop();
        });
    }
    while (central->state() == CBManagerState::unknown && !isOver) runLoop.run();
    if (deadline) deadline->invalidate();
    if (central->state() == CBManagerState::unknown) {
        throw Failure("Bluetooth gave no answer within " + numberText(*patience) + " s" + help);
    }
    if (central->state() != CBManagerState::poweredOn) {
        throw Failure(platform.radioCondition().advice() + help);
    }
}

}  // namespace zobi::tool

#else

namespace zobi::tool {

std::unique_ptr<platform::Platform> makeMachineRadio(const std::string& /*adapter*/, bool /*log*/) {
    throw Failure("this tool was built without the radio of this machine");
}

void expectPoweredOn(platform::Platform& /*platform*/, std::optional<double> /*patience*/) {}

}  // namespace zobi::tool

#endif
