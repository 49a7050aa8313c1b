#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/bluez/RadioContext.h"
#include "platform/bluez/central/BlueZPeripheral.h"
#include "platform/bluez/central/CentralContext.h"
#include "platform/bluez/service/BlueZService.h"
#include "zobi/platform/standard/StandardCentral.h"

namespace zobi::platform::bluez {

/// The central manager over BlueZ, with a bus connection of its own: BlueZ tells its clients apart by their
/// connections, so that one central's scan does not touch another's.
class BlueZCentral final : public StandardCentral, public BlueZServiceDelegate {
public:
    /// @param context what it refers to must outlive every call, though not the object.
    BlueZCentral(const RadioContext& context, std::weak_ptr<CBCentralManagerDelegate> delegate);
    ~BlueZCentral() override;
    BlueZCentral(const BlueZCentral&) = delete;
    BlueZCentral& operator=(const BlueZCentral&) = delete;

    /// Looks for BlueZ. Called once, from the run loop.
    void start();
    void shutDown() override;

    void serviceDidChangeCondition() override;
    void discoveringDidChange() override { context_->discovery->scanWasTold(); }
    void deviceDidAppear(const Device& device) override;
    void deviceDidChange(const Device& device, const DeviceChange& change) override;
    void deviceDidVanish(const Device& device) override;
    void deviceDidTellLinkEnd(const Device& device, const LinkEnd& end) override;
    void characteristicDidChange(const Device& device, std::string_view path,
                                 std::span<const std::uint8_t> value) override;
    void characteristicDidStopNotifying(const Device& device, std::string_view path) override;
    void serviceDidCall(const IncomingCall& call) override;

protected:
    void beginScan() override;
    void endScan() override;
    bool isRadioIdle() const override;

private:
    std::shared_ptr<BlueZCentral> self() {
        return std::static_pointer_cast<BlueZCentral>(shared_from_this());
    }
    /// Null if there is no handle for the device.
    BlueZPeripheral* peripheralOf(const Device& device) const;
    void openChannel();
    void lookForForeignLink(const Device& device);
    void lookForLinkEnds();
    bool isDiscoveryWanted() const;
    void updateDiscovery();
    std::vector<CBUUID> discoveryFilter() const;
    void hear(const Device& device, const DeviceChange& change);
    void report(BlueZPeripheral& peripheral, std::span<const CBServiceData> serviceData, NSNumber rssi);

    std::shared_ptr<CentralContext> context_ = std::make_shared<CentralContext>();
    /// The handles of the devices that BlueZ knows, so that a new scan does not forget them.
    std::unordered_map<Key, std::shared_ptr<StandardPeripheral>> shown_;
    /// The one whose channel is open.
    std::string channelAdapter_;
};

}  // namespace zobi::platform::bluez
