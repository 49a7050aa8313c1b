#include "platform/bluez/central/ForeignLinks.h"

#include <algorithm>
#include <string>
#include <utility>

#include "platform/bluez/bus/BlueZNames.h"
#include "platform/bluez/service/BlueZService.h"

namespace zobi::platform::bluez {

namespace {

// BlueZ tries for 40 s to connect, though the program that asked for it is gone.
constexpr std::chrono::seconds watchTime{45};

}  // namespace

void ForeignLinks::start(const Clock& clock) {
    if (end_ == std::chrono::nanoseconds::zero()) end_ = clock.monotonicTime() + watchTime;
}

void ForeignLinks::look(const Clock& clock, Log& log, const std::shared_ptr<BlueZService>& service,
                        const Device& device) {
    const DeviceAddress& address = device.address;
    if (clock.monotonicTime() > end_ || claimed_.contains(address)) return;
    questions_.insert_or_assign(
        address, service->call(
                     device.path, propertiesInterface, "GetAll",
                     [](Message& message) { message.string(deviceInterface); },
                     [weakSelf = weak_from_this(), &log, weakService = std::weak_ptr(service), address](
                         MessageReader& reply, const BusError* error) {
                         const auto self = weakSelf.lock();
                         const auto known = weakService.lock();
                         if (self && known && !error) self->decide(log, *known, address, reply);
                     }));
}

void ForeignLinks::decide(Log& log, BlueZService& service, const DeviceAddress& address,
                          MessageReader& properties) {
    bool isConnected = false;
    bool isResolved = false;
    bool isPaired = false;
    std::string name;
    bool isToEnd = false;
    properties.forEachProperty([&](std::string_view property) {
        if (property == "Connected") {
            isConnected = properties.variantBool() == true;
        } else if (property == "ServicesResolved") {
            isResolved = properties.variantBool() == true;
        } else if (property == "Paired") {
            isPaired = properties.variantBool() == true;
        } else if (property == "Name") {
            name = properties.variantString().value_or("");
        } else if (property == "UUIDs") {
            properties.variantForEachString([&](std::string_view text) {
                const auto uuid = parseUUID(text);
                isToEnd =
                    isToEnd || (uuid && std::ranges::find(endedServices_, *uuid) != endedServices_.end());
            });
        } else {
            properties.skipVariant();
        }
    });
    const Device* const device = service.device(address);
    if (!properties.isGood() || !device || !isConnected || claimed_.contains(address)) return;
    const std::string text = textOf(address);
    auto known = std::ranges::find(found_, text, &ForeignLink::address);
    const bool isNew = known == found_.end();
    // A paired one, such as a keyboard, is linked for its own sake. Until the services are resolved, it may
    // be one to end.
    const bool isToTell = isNew && !isPaired && (isResolved || endedServices_.empty());
    if (!isToEnd && !isToTell) return;
    if (isNew) known = found_.insert(found_.end(), {text, name});
    if (isToTell && !isToEnd) {
        return log.message(
            "Bluetooth: %@ (%@) is linked, though not by this program, and does not advertise meanwhile. "
            "If no other program uses it, end the link: bluetoothctl disconnect %@",
            text, name, text);
    }
    service.send(device->path, deviceInterface, "Disconnect");
    if (std::exchange(known->isEnded, true)) return;
    log.message("Bluetooth: %@ (%@) was linked, though not by this program. Its link is ended.", text, name);
}

}  // namespace zobi::platform::bluez
