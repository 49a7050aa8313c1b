#pragma once

#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "platform/bluez/RadioContext.h"
#include "platform/bluez/central/BlueZPeripheral.h"
#include "platform/bluez/central/ConnectionAttempts.h"
#include "platform/bluez/central/Discovery.h"
#include "platform/bluez/service/BlueZService.h"
#include "zobi/platform/standard/StandardCentral.h"

namespace zobi::platform::bluez {

/// The central manager over BlueZ, with a bus connection of its own: the service tells its clients apart by
/// their connections, so that one central's scan does not touch another's.
class BlueZCentral final : public StandardCentral, public BlueZServiceDelegate {
public:
    /// @param context what it refers to must outlive every call, though not the object.
    BlueZCentral(RadioContext context, std::weak_ptr<CBCentralManagerDelegate> delegate)
        : StandardCentral(context.runLoop, context.log, std::move(delegate)),
          context_(std::make_shared<const RadioContext>(std::move(context))) {}
    ~BlueZCentral() override;
    BlueZCentral(const BlueZCentral&) = delete;
    BlueZCentral& operator=(const BlueZCentral&) = delete;

    /// Looks for the service. Called once, from the run loop.
    void start();

    // What a peripheral asks for and tells

    BlueZService& service() { return *service_; }
    ConnectionAttempts& attempts() { return *attempts_; }
    /// Null where the controller cannot be reached past the service.
    ControllerChannel* channel() { return channel_.get(); }
    /// Begins discovery again for whoever waits: a controller that reports a device once a scan would not
    /// tell soon that the device is there.
    void discoverAnew();
    void peripheralDidChangePhase();

    void serviceDidChangeAvailability() override;
    void deviceDidAppear(Device& device) override;
    void deviceDidChange(Device& device, const DeviceChange& change) override;
    void deviceDidVanish(Device& device) override;
    void deviceDidTellLinkEnd(Device& device, const LinkEnd& end) override;
    void characteristicDidChange(Device& device, std::string_view path,
                                 std::span<const std::uint8_t> value) override;

protected:
    void beginScan() override;
    void endScan() override { updateDiscovery(); }

private:
    std::weak_ptr<BlueZCentral> weakSelf() {
        return std::static_pointer_cast<BlueZCentral>(shared_from_this());
    }
    void openChannel();
    void updateDiscovery();
    std::vector<CBUUID> discoveryFilter() const;
    void hear(Device& device, const DeviceChange& change);
    /// Null for a device that was not reported yet.
    std::shared_ptr<BlueZPeripheral> knownPeripheral(const DeviceAddress& address) const;
    std::shared_ptr<BlueZPeripheral> peripheralOf(Device& device);
    void report(const std::shared_ptr<BlueZPeripheral>& peripheral,
                std::span<const CBServiceData> serviceData, NSNumber rssi);

    std::shared_ptr<const RadioContext> context_;
    std::shared_ptr<BlueZService> service_;
    std::shared_ptr<Discovery> discovery_;
    std::shared_ptr<ConnectionAttempts> attempts_;
    std::shared_ptr<ControllerChannel> channel_;
    std::string channelAdapter_;
};

}  // namespace zobi::platform::bluez
