#include "zobi/platform/bluez/Diagnosis.h"

#include <memory>
#include <utility>

#include "platform/bluez/controller/OpenControllerChannel.h"
#include "platform/bluez/diagnosis/Examination.h"
#include "zobi/platform/standard/PollWaiting.h"
#include "zobi/platform/standard/StandardClock.h"
#include "zobi/platform/standard/StandardLog.h"
#include "zobi/platform/standard/StandardRunLoop.h"

namespace zobi::platform::bluez {

std::vector<Finding> diagnose(const BlueZOptions& options) {
    const SystemTime clock;
    StandardLog log(nullptr);
    StandardRunLoop runLoop(clock, std::make_unique<PollWaiting>());
    const auto openChannel = [&](const std::string& adapter) {
        return openControllerChannel(adapter, runLoop);
    };
    const RadioContext context{runLoop, clock, log, &Bus::overSystemBus, openChannel, options.adapter};
    const auto examination = std::make_shared<Examination>(context, [&] { runLoop.stop(); });
    runLoop.dispatchAsync([&] { examination->start(); });
    runLoop.run();
    return examination->findings();
}

}  // namespace zobi::platform::bluez
