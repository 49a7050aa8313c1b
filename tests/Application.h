#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ZobiConnectKit/ZobiConnectKit.h"

using Events = std::vector<std::string>;

/// Writes down what the library tells, in its order: delegate, broadcasts and completions. Ranging is not
/// written down.
class Application final : public ZOKManagerDelegate, public std::enable_shared_from_this<Application> {
public:
    Events events;
    /// Called at each event, before it is written down.
    std::function<void(const std::string& event)> onEvent = [](const auto& /*event*/) {};

    /// Becomes the manager's delegate, and hears its platform's broadcasts.
    void start(ZOKManager& manager, platform::Platform& platform);
    /// A completion that writes down that it was called.
    ZOKBeaconCompletion completion(const std::string& name);

    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                    int state) override;
    void zobiConnectManagerDidBeaconConnected(const std::shared_ptr<ZOKManager>& manager,
                                              const std::shared_ptr<ZOKBeacon>& beacon) override;
    void zobiConnectManagerDidBeaconDisconnectedWithError(const std::shared_ptr<ZOKManager>& manager,
                                                          const std::shared_ptr<ZOKBeacon>& beacon,
                                                          const platform::NSError* error) override;
    void zobiConnectManagerDidBatteryValueChangedForBeacon(const std::shared_ptr<ZOKManager>& manager,
                                                           int level,
                                                           const std::shared_ptr<ZOKBeacon>& beacon) override;
    void zobiConnectManagerDidTemperatureValueChangedForBeacon(
        const std::shared_ptr<ZOKManager>& manager, std::uint16_t temperature,
        const std::shared_ptr<ZOKBeacon>& beacon) override;
    void zobiConnectManagerDidButtonActionChangedForBeacon(const std::shared_ptr<ZOKManager>& manager,
                                                           int action,
                                                           const std::shared_ptr<ZOKBeacon>& beacon) override;

private:
    void note(const std::string& event, const std::shared_ptr<ZOKBeacon>& beacon);
};
