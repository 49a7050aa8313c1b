#include "zobi/platform/standard/StandardPlatform.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "platform/ThreadCheck.h"
#include "zobi/platform/standard/ExceptionKeeper.h"

namespace zobi::platform {

namespace {

// How often it is looked whether all has ended.
constexpr double shutDownStep = 0.02;

/// The central manager of a machine without a radio.
class UnsupportedCentral final : public StandardCentral {
public:
    using StandardCentral::enterState;
    using StandardCentral::StandardCentral;
};

}  // namespace

StandardPlatform::StandardPlatform(Time time, std::unique_ptr<Waiting> waiting)
    : virtualTime_(time == Time::virtualTime ? std::make_unique<VirtualTime>() : nullptr),
      log_(StandardLog::stderrSink(StandardPlatform::clock())),
      runLoop_(virtualTime_ ? StandardRunLoop(*virtualTime_, std::move(waiting))
                            : StandardRunLoop(systemTime_, std::move(waiting))),
      application_(notificationCenter_) {}

StandardPlatform::~StandardPlatform() {
    clear();
}

std::shared_ptr<CBCentralManager> StandardPlatform::makeCentralManager(
    std::weak_ptr<CBCentralManagerDelegate> delegate) {
    auto central = makeCentral(std::move(delegate));
    const std::lock_guard lock(centralsMutex_);
    std::erase_if(centrals_, [](const auto& known) { return known.expired(); });
    centrals_.push_back(central);
    if (isShutDown_) runLoop_.dispatchAsync([central] { central->shutDown(); });
    return central;
}

std::shared_ptr<StandardCentral> StandardPlatform::makeCentral(
    std::weak_ptr<CBCentralManagerDelegate> delegate) {
    auto central = std::make_shared<UnsupportedCentral>(runLoop_, log_, std::move(delegate));
    runLoop_.dispatchAsync([this, central] {
        setRadioCondition(RadioCondition::ofState(CBManagerState::unsupported));
        central->enterState(CBManagerState::unsupported);
    });
    return central;
}

std::vector<std::shared_ptr<StandardCentral>> StandardPlatform::centrals() {
    const std::lock_guard lock(centralsMutex_);
    std::vector<std::shared_ptr<StandardCentral>> living;
    for (const auto& known : centrals_) {
        if (auto central = known.lock()) living.push_back(std::move(central));
    }
    return living;
}

bool StandardPlatform::shutDown(double seconds) {
    checkThread(runLoop_);
    runLoop_.requireOutsideCallbacks();
    {
        const std::lock_guard lock(centralsMutex_);
        isShutDown_ = true;
    }
    for (const auto& central : centrals()) central->shutDown();
    const auto now = [this] { return std::chrono::duration<double>(clock().monotonicTime()).count(); };
    const auto hasEnded = [this] { return std::ranges::all_of(centrals(), &StandardCentral::hasEnded); };
    const double end = now() + seconds;
    ExceptionKeeper exceptions;
    for (double left = seconds; left > 0 && !hasEnded(); left = end - now()) {
        exceptions.run([&] { runLoop_.runFor(std::min(left, shutDownStep)); });
    }
    exceptions.rethrow();
    return hasEnded();
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

void StandardPlatform::clear() {
    runLoop_.clear();
    notificationCenter_.clear();
}

}  // namespace zobi::platform
