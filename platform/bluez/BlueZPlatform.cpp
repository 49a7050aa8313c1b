#include "zobi/platform/bluez/BlueZPlatform.h"

#include <utility>

#include "platform/bluez/RadioContext.h"
#include "platform/bluez/central/BlueZCentral.h"
#include "platform/bluez/controller/KernelMonitors.h"
#include "platform/bluez/controller/OpenControllerChannel.h"
#include "zobi/platform/standard/PollWaiting.h"

namespace zobi::platform::bluez {

namespace {

std::shared_ptr<ServiceFaults> faultsOfService() {
    static const auto faults = std::make_shared<ServiceFaults>();
    return faults;
}

}  // namespace

BlueZPlatform::BlueZPlatform(BlueZOptions options)
    : StandardPlatform(Time::real, std::make_unique<PollWaiting>()),
      context_(new RadioContext{
          runLoop(), clock(), log(), &Bus::overSystemBus,
          [this](const std::string& adapter) { return openControllerChannel(adapter, runLoop()); },
          std::move(options.adapter),
          [this](const RadioCondition& condition) { setRadioCondition(condition); },
          std::make_shared<ForeignLinks>(std::move(options.endedServices)), &startKernelDiscovery,
          faultsOfService(),
          [this](const std::string& adapter, const std::string& service) {
              return KernelMonitors::open(adapter, service, runLoop());
          }}) {}

BlueZPlatform::~BlueZPlatform() {
    clear();
}

std::shared_ptr<StandardCentral> BlueZPlatform::makeCentral(
    std::weak_ptr<CBCentralManagerDelegate> delegate) {
    auto central = std::make_shared<BlueZCentral>(*context_, std::move(delegate));
    runLoop().dispatchAsync([central] { central->start(); });
    return central;
}

const std::vector<ForeignLink>& BlueZPlatform::foreignLinks() const {
    return context_->foreignLinks->found();
}

}  // namespace zobi::platform::bluez
