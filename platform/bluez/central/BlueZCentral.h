#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/bluez/RadioContext.h"
#include "platform/bluez/central/BlueZPeripheral.h"
#include "platform/bluez/central/ConnectionAttempts.h"
#include "platform/bluez/central/Discovery.h"
#include "platform/bluez/service/BlueZService.h"
#include "zobi/platform/CBCentralManager.h"

namespace zobi::platform::bluez {

/// The central manager over BlueZ, with a bus connection of its own: the service tells its clients apart by
/// their connections, so that one central's scan does not touch another's.
class BlueZCentral final : public CBCentralManager,
                           public BlueZServiceDelegate,
                           public std::enable_shared_from_this<BlueZCentral> {
public:
    /// @param context what it refers to must outlive every call, though not the object.
    BlueZCentral(RadioContext context, std::weak_ptr<CBCentralManagerDelegate> delegate)
        : context_(std::make_shared<const RadioContext>(std::move(context))),
          delegate_(std::move(delegate)) {}
    ~BlueZCentral() override;
    BlueZCentral(const BlueZCentral&) = delete;
    BlueZCentral& operator=(const BlueZCentral&) = delete;

    /// Looks for the service. Called once, from the run loop.
    void start();

    CBManagerState state() const override { return state_; }
    bool isScanning() const override { return isScanning_; }
    void scanForPeripheralsWithServicesOptions(std::span<const CBUUID> services,
                                               CBScanOptions options) override;
    void stopScan() override;
    void connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral) override;
    void cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) override;

    // What a peripheral asks for and tells

    BlueZService& service() { return *service_; }
    ConnectionAttempts& attempts() { return *attempts_; }
    /// Null where the controller cannot be reached past the service.
    ControllerChannel* channel() { return channel_.get(); }
    /// The turn of a request to connect has come.
    void carryOutConnect(const std::shared_ptr<BlueZPeripheral>& peripheral);
    void peripheralDidChangePhase();
    void reportConnection(const std::shared_ptr<BlueZPeripheral>& peripheral);
    void reportFailure(const std::shared_ptr<BlueZPeripheral>& peripheral, const NSError& error);
    void reportDisconnection(const std::shared_ptr<BlueZPeripheral>& peripheral, const NSError* error);

    void serviceDidChangeAvailability() override;
    void deviceDidAppear(Device& device) override;
    void deviceDidChange(Device& device, const DeviceChange& change) override;
    void deviceDidVanish(Device& device) override;
    void deviceDidTellLinkEnd(Device& device, const LinkEnd& end) override;
    void characteristicDidChange(Device& device, std::string_view path,
                                 std::span<const std::uint8_t> value) override;

private:
    /// Null for a peripheral that is not this central's.
    std::shared_ptr<BlueZPeripheral> ownPeripheral(const std::shared_ptr<CBPeripheral>& peripheral) const;
    void enterState(CBManagerState state);
    void openChannel();
    void updateDiscovery();
    std::vector<CBUUID> discoveryFilter() const;
    bool passesServiceFilter(const Device& device) const;
    void hear(Device& device, const DeviceChange& change);
    std::shared_ptr<BlueZPeripheral> peripheralOf(Device& device);
    void report(const std::shared_ptr<BlueZPeripheral>& peripheral,
                std::span<const CBServiceData> serviceData, NSNumber rssi);

    std::shared_ptr<const RadioContext> context_;
    std::weak_ptr<CBCentralManagerDelegate> delegate_;
    std::shared_ptr<BlueZService> service_;
    std::shared_ptr<Discovery> discovery_;
    std::shared_ptr<ConnectionAttempts> attempts_;
    std::shared_ptr<ControllerChannel> channel_;
    std::string channelAdapter_;
    CBManagerState state_ = CBManagerState::unknown;
    bool isScanning_ = false;
    std::vector<CBUUID> serviceFilter_;
    CBScanOptions options_;
    std::uint64_t scansStarted_ = 0;
    std::uint64_t attemptsStarted_ = 0;
    std::map<DeviceAddress, std::shared_ptr<BlueZPeripheral>> peripherals_;
};

}  // namespace zobi::platform::bluez
