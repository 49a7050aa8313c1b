#include "platform/bluez/peripheral-role/LocalObjects.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

#include "platform/bluez/bus/BlueZNames.h"

namespace zobi::platform::bluez {

namespace {

std::string servicePath(std::size_t service) {
    return std::string(applicationPath) + "/service" + std::to_string(service);
}

std::vector<std::string> flagsOf(const LocalCharacteristic& characteristic) {
    std::vector<std::string> flags;
    if (characteristic.canBeRead) flags.emplace_back("read");
    if (characteristic.canBeWritten) flags.emplace_back("write");
    if (characteristic.canBeWrittenWithoutResponse) flags.emplace_back("write-without-response");
    if (characteristic.canNotify) flags.emplace_back("notify");
    return flags;
}

/// How many bytes a UUID takes on the air.
std::size_t sizeOf(const CBUUID& uuid) {
    constexpr std::size_t whole = 16;
    const std::size_t length = uuid.UUIDString().size();
    // A short one has no hyphens.
    return length < 2 * whole ? length / 2 : whole;
}

}  // namespace

LocalObjects::LocalObjects(std::vector<LocalService> services) : services_(std::move(services)) {
    for (std::size_t s = 0; s < services_.size(); ++s) {
        const LocalService& service = services_[s];
        const Properties properties{{"UUID", service.uuid.UUIDString()}, {"Primary", true}};
        objects_.push_back({servicePath(s), {{gattServiceInterface, properties}}});
        for (std::size_t c = 0; c < service.characteristics.size(); ++c) {
            add({s, c}, service.characteristics[c]);
        }
    }
}

void LocalObjects::add(GATTPlace place, const LocalCharacteristic& characteristic) {
    const std::string path = characteristicPath(place);
    const Properties properties{{"Service", ObjectPath{servicePath(place.service)}},
                                {"UUID", characteristic.uuid.UUIDString()},
                                {"Flags", flagsOf(characteristic)}};
    objects_.push_back({path, {{gattCharacteristicInterface, properties}}});
    places_.emplace(path, place);
}

const ManagedObject* LocalObjects::find(std::string_view path) const {
    const auto found = std::ranges::find(objects_, path, &ManagedObject::path);
    return found == objects_.end() ? nullptr : &*found;
}

std::optional<GATTPlace> LocalObjects::place(std::string_view path) const {
    const auto found = places_.find(path);
    return found == places_.end() ? std::nullopt : std::optional(found->second);
}

std::string LocalObjects::characteristicPath(GATTPlace place) {
    return servicePath(place.service) + "/characteristic" + std::to_string(place.characteristic);
}

Properties propertiesOf(const LocalAdvertisement& advertisement) {
    Properties properties{{"Type", "peripheral"}, {"Discoverable", true}};
    if (advertisement.localName) properties.emplace_back("LocalName", *advertisement.localName);
    if (!advertisement.services.empty()) {
        std::vector<std::string> services;
        for (const CBUUID& service : advertisement.services) services.push_back(service.UUIDString());
        properties.emplace_back("ServiceUUIDs", services);
    }
    if (!advertisement.serviceData.empty()) {
        Properties data;
        for (const auto& element : advertisement.serviceData) {
            data.emplace_back(element.service.UUIDString(), element.data);
        }
        properties.emplace_back("ServiceData", data);
    }
    if (advertisement.interval) {
        const auto milliseconds = static_cast<std::uint32_t>(std::lround(*advertisement.interval * 1000));
        properties.emplace_back("MinInterval", milliseconds);
        properties.emplace_back("MaxInterval", milliseconds);
    }
    return properties;
}

std::size_t sizeOf(const LocalAdvertisement& advertisement) {
    constexpr std::size_t flagsSize = 3;
    constexpr std::size_t headerSize = 2;
    std::size_t size = flagsSize;
    // UUIDs of each size have a list of their own.
    std::set<std::size_t> sizes;
    for (const CBUUID& service : advertisement.services) {
        size += sizeOf(service);
        sizes.insert(sizeOf(service));
    }
    size += sizes.size() * headerSize;
    for (const auto& element : advertisement.serviceData) {
        size += headerSize + sizeOf(element.service) + element.data.size();
    }
    return size;
}

}  // namespace zobi::platform::bluez
