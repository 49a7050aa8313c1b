#include "zobi/platform/bluez/BlueZPlatform.h"

#include <utility>

#include "platform/bluez/RadioContext.h"
#include "platform/bluez/central/BlueZCentral.h"
#include "platform/bluez/controller/OpenControllerChannel.h"

namespace zobi::platform::bluez {

BlueZPlatform::BlueZPlatform(BlueZOptions options) : BlueZPlatform(std::move(options), new PollWaiting) {}

// The loop owns what it waits with, and the radio adds to it.
BlueZPlatform::BlueZPlatform(BlueZOptions options, PollWaiting* waiting)
    : StandardPlatform(Time::real, std::unique_ptr<PollWaiting>(waiting)),
      context_(new RadioContext{
          runLoop(), clock(), log(), *waiting, &Bus::overSystemBus,
          [this](const std::string& adapter) { return openControllerChannel(adapter, runLoop()); },
          std::move(options.adapter)}) {}

BlueZPlatform::~BlueZPlatform() {
    shutDown();
}

std::shared_ptr<CBCentralManager> BlueZPlatform::makeCentralManager(
    std::weak_ptr<CBCentralManagerDelegate> delegate) {
    auto central = std::make_shared<BlueZCentral>(*context_, std::move(delegate));
    runLoop().dispatchAsync([central] { central->start(); });
    return central;
}

}  // namespace zobi::platform::bluez
