#include "zobi/platform/standard/ForwardingPlatform.h"

#include <utility>

namespace zobi::platform {

ForwardingPlatform::ForwardingPlatform(std::unique_ptr<Platform> wrapped)
    : owned_(std::move(wrapped)), wrapped_(*owned_) {}

ForwardingPlatform::~ForwardingPlatform() {
    destroyWrapped();
}

std::shared_ptr<CBCentralManager> ForwardingPlatform::makeCentralManager(
    std::weak_ptr<CBCentralManagerDelegate> delegate) {
    return wrapped_.makeCentralManager(std::move(delegate));
}

bool ForwardingPlatform::shutDown(double seconds) {
    return wrapped_.shutDown(seconds);
}

RadioCondition ForwardingPlatform::radioCondition() const {
    return wrapped_.radioCondition();
}

UIApplication& ForwardingPlatform::application() {
    return wrapped_.application();
}

NSNotificationCenter& ForwardingPlatform::notificationCenter() {
    return wrapped_.notificationCenter();
}

RunLoop& ForwardingPlatform::runLoop() {
    return wrapped_.runLoop();
}

Clock& ForwardingPlatform::clock() {
    return wrapped_.clock();
}

Log& ForwardingPlatform::log() {
    return wrapped_.log();
}

std::shared_ptr<CBCentralManager> ForwardingPlatform::insert(std::shared_ptr<ForwardingCentral> central) {
    central->attach(wrapped_.makeCentralManager(central));
    return central;
}

void ForwardingPlatform::destroyWrapped() {
    owned_.reset();
}

}  // namespace zobi::platform
