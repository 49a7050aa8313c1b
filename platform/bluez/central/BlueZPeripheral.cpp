#include "platform/bluez/central/BlueZPeripheral.h"

#include <utility>

namespace zobi::platform::bluez {

void BlueZPeripheral::deviceDidChange(const Device& device, const DeviceChange& change) {
    // Over a link, BlueZ replaces the advertised name by one that it reads from the peripheral. The end of a
    // link and what is heard after it may come in one signal.
    const bool isAdvertised = !device.isConnected && (link_.isUnlinked() || change.rssi);
    if (change.name && isAdvertised && heard_.hearName(*change.name)) forgetReport();
    link_.deviceDidChange(device, change);
}

void BlueZPeripheral::characteristicDidChange(std::string_view path, std::span<const std::uint8_t> value) {
    if (link_.isUp()) operations_.valueDidChange(path, value);
}

void BlueZPeripheral::characteristicDidStopNotifying(std::string_view path) {
    if (link_.isUp()) operations_.subscriptionDidEnd(std::string(path));
}

StandardPeripheral::Outcome BlueZPeripheral::listServices(UUIDs& table) {
    for (const RemoteService& service : operations_.table()) table.push_back(service.uuid);
    return std::nullopt;
}

StandardPeripheral::Outcome BlueZPeripheral::listCharacteristics(std::size_t service, UUIDs& table) {
    for (const auto& characteristic : operations_.table()[service].characteristics) {
        table.push_back(characteristic.uuid);
    }
    return std::nullopt;
}

void BlueZPeripheral::read(GATTPlace place, ReadCompletion completion) {
    operations_.read(place, std::move(completion));
}

void BlueZPeripheral::write(GATTPlace place, std::vector<std::uint8_t> value, CBCharacteristicWriteType type,
                            Completion completion) {
    operations_.write(place, value, type, std::move(completion));
}

void BlueZPeripheral::setNotify(GATTPlace place, bool enabled, Completion completion) {
    operations_.setNotify(place, enabled, std::move(completion));
}

void BlueZPeripheral::readSignalStrength(RSSICompletion completion) {
    operations_.readSignalStrength(completion);
}

}  // namespace zobi::platform::bluez
