#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "platform/bluez/bus/Bus.h"
#include "platform/bluez/controller/DeviceAddress.h"
#include "zobi/platform/CBUUID.h"
#include "zobi/platform/Log.h"
#include "zobi/platform/bluez/BlueZPlatform.h"

namespace zobi::platform::bluez {

class BlueZService;
struct Device;

/// Finds the links to devices that no central manager of this platform has made: those of a program that was
/// killed, which BlueZ keeps for nobody. It looks at the start, and for as long after as BlueZ may go on with
/// an attempt of that program. Shared by the central managers of a platform. Main thread only.
class ForeignLinks final : public std::enable_shared_from_this<ForeignLinks> {
public:
    /// @param endedServices the devices with one of these services are disconnected.
    explicit ForeignLinks(std::vector<CBUUID> endedServices = {})
        : endedServices_(std::move(endedServices)) {}

    /// A central manager starts to use BlueZ. Later calls do nothing.
    void start(const Clock& clock);
    /// A central manager of this platform connects to the device: its links are never foreign again.
    void claim(const DeviceAddress& address) { claimed_.insert(address); }
    /// A device is connected. If nobody has claimed it, asks BlueZ more of it, and tells.
    void look(const Clock& clock, Log& log, const std::shared_ptr<BlueZService>& service,
              const Device& device);

    /// In the order in which they were found.
    const std::vector<ForeignLink>& found() const { return found_; }

private:
    void decide(Log& log, BlueZService& service, const DeviceAddress& address, MessageReader& properties);

    std::vector<CBUUID> endedServices_;
    std::chrono::nanoseconds end_{};
    std::set<DeviceAddress> claimed_;
    std::map<DeviceAddress, Slot> questions_;
    std::vector<ForeignLink> found_;
};

}  // namespace zobi::platform::bluez
