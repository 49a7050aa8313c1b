#include "tools/zobiconnect/beacon/BeaconVisit.h"

#include <utility>

#include "tools/zobiconnect/text/Names.h"
#include "tools/zobiconnect/text/Text.h"

namespace zobi::tool {

using platform::CBUUID;
using Link = BeaconClient::Link;

namespace {

platform::Platform& install(std::unique_ptr<platform::Platform> platform) {
    platform::Platform::install(std::move(platform));
    return platform::Platform::current();
}

std::string withinText(double seconds) {
    return " within " + numberText(seconds) + " s";
}

}  // namespace

Deadline::Deadline(platform::RunLoop& runLoop, double seconds)
    : timer_(runLoop.after(seconds, [&runLoop] { runLoop.stop(); })) {}

BeaconVisit::BeaconVisit(const BeaconOptions& options)
    : timeout_(options.timeout),
      radio_(makeRadio(options.radio, options.timeout)),
      platform_(install(std::move(radio_.platform))),
      stopOnSignal_(platform_.runLoop()),
      deadline_(platform_.runLoop(), options.timeout),
      client_(std::make_shared<BeaconClient>(platform_, options.identity)) {
    client_->start();
    radio_.play();
}

void BeaconVisit::carryOut(const std::function<void()>& task) {
    try {
        task();
    } catch (...) {
        // It may have thrown itself.
        client_->setObserver(nullptr);
        try {
            disconnect();
        } catch (const Failure&) {
            // The first failure is the one to tell.
        }
        throw;
    }
    disconnect();
}

void BeaconVisit::disconnect() {
    // Not of the command's own time, which may be over.
    constexpr double patience = 5;
    if (client_->link() != Link::none) tellProgress("disconnecting from " + client_->name());
    client_->end();
    if (platform_.shutDown(patience)) return;
    throw Failure("the link to " + client_->name() + " did not end" + withinText(patience));
}

bool BeaconVisit::runUntil(const std::function<bool()>& condition, const Deadline* deadline) {
    while (!condition()) {
        wasInterrupted_ = StopOnSignal::take();
        if (wasInterrupted_ || (deadline && deadline->hasPassed())) return false;
        platform_.runLoop().run();
    }
    return true;
}

void BeaconVisit::connect() {
    await("waiting for Bluetooth", [this] { return client_->isBluetoothOn(); });
    await("looking for " + client_->name(), [this] { return client_->link() != Link::none; });
    await("connecting to " + client_->name(), [this] { return client_->link() == Link::connected; });
}

void BeaconVisit::require(const CBUUID& characteristic, const CBUUID& service) const {
    if (client_->beacon()->peripheral()->state() != platform::CBPeripheralState::connected) {
        throw Failure("the link to " + client_->name() + " is down");
    }
    if (client_->has(characteristic, service)) return;
    throw Failure(client_->name() + " has no characteristic " + gattText(characteristic) + " in a service " +
                  gattText(service));
}

void BeaconVisit::await(const std::string& doing, const std::function<bool()>& condition) {
    if (awaitInTime(doing, condition)) return;
    if (client_->link() != Link::connected) throw Failure(whyNotConnected());
    throw Failure(client_->name() + " gave no answer" + withinText(timeout_) + ": " + doing);
}

bool BeaconVisit::awaitInTime(const std::string& doing, const std::function<bool()>& condition) {
    if (!condition()) tellProgress(doing);
    runUntil([&] { return condition() || client_->ending(); }, &deadline_);
    if (condition()) return true;
    if (client_->ending()) throw Failure(*client_->ending());
    if (wasInterrupted_) throw Failure("interrupted");
    return false;
}

std::string BeaconVisit::whyNotConnected() const {
    if (wasInterrupted_) return "interrupted";
    return "no connection" + withinText(timeout_) + ": " + client_->obstacle();
}

}  // namespace zobi::tool
