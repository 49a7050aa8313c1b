#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bluez/central/BlueZLink.h"
#include "platform/bluez/central/CentralContext.h"
#include "platform/bluez/central/HeardDevice.h"
#include "platform/bluez/central/LinkOperations.h"
#include "zobi/platform/standard/StandardPeripheral.h"

namespace zobi::platform::bluez {

/// A device as a central manager of this radio has it: what was heard of it, the link to it, and the
/// operations over that link. It outlives what BlueZ knows of the device.
class BlueZPeripheral final : public StandardPeripheral {
public:
    BlueZPeripheral(const std::weak_ptr<CentralContext>& context, const DeviceAddress& address,
                    std::vector<CBUUID> foundWith)
        : address_(address),
          heard_(std::move(foundWith)),
          operations_(*this, address, context),
          link_(*this, address, heard_, operations_, context) {}

    std::string addressText() const override { return textOf(address_); }

    HeardDevice& heard() { return heard_; }
    BlueZLink& link() { return link_; }
    const BlueZLink& link() const { return link_; }

    void deviceDidChange(const Device& device, const DeviceChange& change);
    void characteristicDidChange(std::string_view path, std::span<const std::uint8_t> value);
    void characteristicDidStopNotifying(std::string_view path);

protected:
    void beginAttempt() override { link_.begin(); }
    void dropConnection() override { link_.drop(); }
    void endLink() override { link_.end(); }

    Outcome listServices(UUIDs& table) override;
    Outcome listCharacteristics(std::size_t service, UUIDs& table) override;
    void read(GATTPlace place, ReadCompletion completion) override;
    void write(GATTPlace place, std::vector<std::uint8_t> value, CBCharacteristicWriteType type,
               Completion completion) override;
    void setNotify(GATTPlace place, bool enabled, Completion completion) override;
    void readSignalStrength(RSSICompletion completion) override;

private:
    DeviceAddress address_;
    HeardDevice heard_;
    LinkOperations operations_;
    BlueZLink link_;
};

}  // namespace zobi::platform::bluez
