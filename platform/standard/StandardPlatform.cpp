#include "zobi/platform/standard/StandardPlatform.h"

#include <utility>

namespace zobi::platform {

namespace {

/// The central service of a machine without a radio.
class UnsupportedCentral final : public CBCentralManager {
public:
    CBManagerState state() const override { return state_; }
    bool isScanning() const override { return false; }
    void scanForPeripheralsWithServicesOptions(std::span<const CBUUID> /*services*/,
                                               CBScanOptions /*options*/) override {}
    void stopScan() override {}
    void connectPeripheral(const std::shared_ptr<CBPeripheral>& /*peripheral*/) override {}
    void cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& /*peripheral*/) override {}

    void reportState(const std::weak_ptr<CBCentralManagerDelegate>& delegate) {
        state_ = CBManagerState::unsupported;
        if (const auto strongDelegate = delegate.lock()) strongDelegate->centralManagerDidUpdateState(*this);
    }

private:
    CBManagerState state_ = CBManagerState::unknown;
};

}  // namespace

StandardPlatform::StandardPlatform(Time time, std::unique_ptr<Waiting> waiting)
    : virtualTime_(time == Time::virtualTime ? std::make_unique<VirtualTime>() : nullptr),
      log_(StandardLog::stderrSink(StandardPlatform::clock())),
      runLoop_(virtualTime_ ? StandardRunLoop(*virtualTime_, std::move(waiting))
                            : StandardRunLoop(systemTime_, std::move(waiting))),
      application_(notificationCenter_) {}

StandardPlatform::~StandardPlatform() {
    shutDown();
}

std::shared_ptr<CBCentralManager> StandardPlatform::makeCentralManager(
    std::weak_ptr<CBCentralManagerDelegate> delegate) {
    auto central = std::make_shared<UnsupportedCentral>();
    runLoop_.dispatchAsync([this, central, delegate = std::move(delegate)] {
        setRadioCondition(RadioCondition::ofState(CBManagerState::unsupported));
        central->reportState(delegate);
    });
    return central;
}

RadioCondition StandardPlatform::radioCondition() const {
    return radioCondition_;
}

void StandardPlatform::setRadioCondition(RadioCondition condition) {
    if (condition == radioCondition_) return;
    radioCondition_ = std::move(condition);
    runLoop_.dispatchAsync([this] {
        notificationCenter_.postNotificationNameObjectUserInfo(RadioConditionDidChangeNotification, nullptr,
                                                               {});
    });
}

StandardApplication& StandardPlatform::application() {
    return application_;
}

StandardNotificationCenter& StandardPlatform::notificationCenter() {
    return notificationCenter_;
}

StandardRunLoop& StandardPlatform::runLoop() {
    return runLoop_;
}

Clock& StandardPlatform::clock() {
    if (virtualTime_) return *virtualTime_;
    return systemTime_;
}

StandardLog& StandardPlatform::log() {
    return log_;
}

VirtualTime* StandardPlatform::virtualTime() {
    return virtualTime_.get();
}

void StandardPlatform::shutDown() {
    runLoop_.clear();
    notificationCenter_.clear();
}

}  // namespace zobi::platform
