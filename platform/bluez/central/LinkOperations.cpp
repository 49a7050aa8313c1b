#include "platform/bluez/central/LinkOperations.h"

#include <algorithm>
#include <utility>

#include "platform/bluez/bus/BlueZNames.h"

namespace zobi::platform::bluez {

namespace {

// The Attribute Protocol itself gives up after 30 s, and BlueZ ends the link then.
constexpr double operationDeadline = 40;
// An operation that fails with a link is answered before the end of the link is signalled.
constexpr double linkEndDelay = 0.5;
// The controller measures at once.
constexpr double signalDeadline = 3;

}  // namespace

void LinkOperations::begin(std::vector<RemoteService> table) {
    table_ = std::move(table);
}

void LinkOperations::end() {
    call_.cancel();
    if (timer_) timer_->invalidate();
    readPath_.clear();
    heldValues_.clear();
    notifying_.clear();
    const auto subscribed = std::exchange(subscribed_, {});
    const auto context = context_.lock();
    if (!context) return;
    // BlueZ would subscribe again at the next link.
    for (const std::string& path : subscribed) {
        context->service->send(path, gattCharacteristicInterface, "StopNotify");
    }
}

const std::string& LinkOperations::pathOf(GATTPlace place) const {
    return table_[place.service].characteristics[place.characteristic].path;
}

std::optional<GATTPlace> LinkOperations::placeOf(std::string_view path) const {
    for (std::size_t s = 0; s < table_.size(); ++s) {
        const auto& characteristics = table_[s].characteristics;
        const auto found = std::ranges::find(characteristics, path, &RemoteCharacteristic::path);
        if (found == characteristics.end()) continue;
        return GATTPlace{s, static_cast<std::size_t>(found - characteristics.begin())};
    }
    return std::nullopt;
}

void LinkOperations::operate(const std::string& path, const char* member,
                             const std::function<void(Message&)>& append, Bus::Answer answer) {
    const auto context = context_.lock();
    if (!context) return;
    call_.start(peripheral_.shared_from_this(), context->radio->runLoop, operationDeadline,
                "The Bluetooth service does not answer.", std::move(answer), [&](Bus::Answer answered) {
                    return context->service->call(path, gattCharacteristicInterface, member, append,
                                                  std::move(answered));
                });
}

void LinkOperations::fail(GATTOperation operation, const BusError& busError, const Completion& completion) {
    const NSError error = errorOfOperation(operation, busError);
    const auto context = context_.lock();
    if (!context || !mayTellLinkEnd(error)) return completion(error);
    timer_ = context->radio->runLoop.after(linkEndDelay, [completion, error] { completion(error); });
}

void LinkOperations::read(GATTPlace place, ReadCompletion completion) {
    readPath_ = pathOf(place);
    operate(
        readPath_, "ReadValue", [](Message& message) { message.properties({}); },
        [this, completion = std::move(completion)](MessageReader& reply, const BusError* error) {
            const auto value = error ? std::span<const std::uint8_t>() : reply.bytes();
            // BlueZ signals what was read before it answers: that is not told twice.
            if (!error && !heldValues_.empty() && std::ranges::equal(heldValues_.back(), value)) {
                heldValues_.pop_back();
            }
            ExceptionKeeper exceptions;
            tellHeldValues(exceptions);
            exceptions.run([&] {
                if (!error) return completion(std::nullopt, value);
                fail(GATTOperation::read, *error,
                     [completion](const Outcome& outcome) { completion(outcome, {}); });
            });
            exceptions.rethrow();
        });
}

void LinkOperations::tellHeldValues(ExceptionKeeper& exceptions) {
    const auto place = placeOf(std::exchange(readPath_, {}));
    if (!place) return;
    for (const Bytes& value : std::exchange(heldValues_, {})) {
        exceptions.run([&] { peripheral_.deliverNotification(*place, value); });
    }
}

void LinkOperations::valueDidChange(std::string_view path, std::span<const std::uint8_t> value) {
    if (path == readPath_) {
        heldValues_.emplace_back(value.begin(), value.end());
    } else if (const auto place = placeOf(path)) {
        peripheral_.deliverNotification(*place, value);
    }
}

void LinkOperations::write(GATTPlace place, const std::vector<std::uint8_t>& value,
                           CBCharacteristicWriteType type, Completion completion) {
    const char* const kind = type == CBCharacteristicWriteType::withResponse ? "request" : "command";
    operate(
        pathOf(place), "WriteValue",
        [&](Message& message) {
            message.bytes(value).properties({{"type", kind}});
        },
        [this, completion = std::move(completion)](MessageReader& /*reply*/, const BusError* error) {
            if (!error) return completion(std::nullopt);
            fail(GATTOperation::write, *error, completion);
        });
}

void LinkOperations::setNotify(GATTPlace place, bool enabled, Completion completion) {
    const std::string& path = pathOf(place);
    // Even a call that fails or is not answered may have had its effect.
    if (enabled) subscribed_.insert(path);
    notifying_.erase(path);
    operate(path, enabled ? "StartNotify" : "StopNotify", nullptr,
            [this, path, enabled, completion = std::move(completion)](MessageReader& /*reply*/,
                                                                      const BusError* error) {
                // Where there is no subscription, none is to be ended.
                if (!error || (!enabled && error->message == "No notify session started")) {
                    if (enabled) notifying_.try_emplace(path);
                    if (!enabled) subscribed_.erase(path);
                    return completion(std::nullopt);
                }
                fail(GATTOperation::notify, *error, completion);
            });
}

void LinkOperations::subscriptionDidEnd(const std::string& path) {
    const auto context = context_.lock();
    const auto subscription = notifying_.find(path);
    if (!context || subscription == notifying_.end()) return;
    auto& renewal = subscription->second;
    if (renewal) {
        // While it is tried, the answer tells.
        if (renewal->isPending()) return;
        return loseSubscription(path,
                                {CBError::unknown, "The Bluetooth service has ended the subscription."});
    }
    renewal.emplace().start(
        peripheral_.shared_from_this(), context->radio->runLoop, operationDeadline,
        "The Bluetooth service does not answer.",
        [this, path](MessageReader& /*reply*/, const BusError* error) {
            if (error) loseSubscription(path, errorOfOperation(GATTOperation::notify, *error));
        },
        [&](Bus::Answer answered) {
            return context->service->call(path, gattCharacteristicInterface, "StartNotify", nullptr,
                                          std::move(answered));
        });
}

void LinkOperations::loseSubscription(const std::string& path, const NSError& error) {
    const auto place = placeOf(path);
    notifying_.erase(path);
    if (place) peripheral_.subscriptionEnded(*place, error);
}

void LinkOperations::readSignalStrength(const RSSICompletion& completion) {
    const auto context = context_.lock();
    const auto failWith = [completion](const char* why) { completion(NSError(CBError::unknown, why), {}); };
    const Device* const device = context ? context->service->device(address_) : nullptr;
    if (!device || !context->channel) {
        return failWith("This user cannot ask the controller for the signal strength of a link.");
    }
    timer_ = context->radio->runLoop.after(signalDeadline,
                                           [failWith] { failWith("The controller does not answer."); });
    context->channel->readRSSI(
        device->linkAddress, [timer = timer_, completion, failWith](std::optional<int> rssi) {
            timer->invalidate();
            if (!rssi) return failWith("The controller does not tell the signal strength of the link.");
            completion(std::nullopt, NSNumber::numberWithInt(*rssi));
        });
}

}  // namespace zobi::platform::bluez
