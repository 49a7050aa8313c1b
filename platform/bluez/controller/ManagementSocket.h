#pragma once

#include <cstdint>
#include <memory>
#include <set>

#include "platform/bluez/controller/KernelSocket.h"

namespace zobi::platform::bluez {

/// The kernel's management socket, for a process with the capability CAP_NET_ADMIN. It tells the end of links
/// in a few kinds of reasons, and a signal strength that the kernel keeps for one to three seconds.
class ManagementSocket final : public KernelSocket {
public:
    /// Whether this process has the capability CAP_NET_ADMIN.
    static bool isAllowed();
    /// Null where there is none to be had, or it would tell this process nothing.
    static std::shared_ptr<ManagementSocket> open(std::uint16_t controller, RunLoop& runLoop);
    /// Starts a discovery of Low Energy devices, which the kernel ends after 10 s. BlueZ hears what it finds,
    /// and is told of its end as if it were its own. False if this process may not.
    static bool startDiscovery(std::uint16_t controller);

    ManagementSocket(int descriptor, std::uint16_t controller, RunLoop& runLoop)
        : KernelSocket(descriptor, runLoop), controller_(controller) {}

    bool asksController() const override { return false; }
    LowEnergy lowEnergy() const override { return readLowEnergy(controller_); }
    void watchLink(const DeviceAddress& device) override;

protected:
    void packetWasRead(std::span<const std::uint8_t> packet) override;
    bool requestRSSI(const DeviceAddress& device) override;

private:
    std::uint16_t controller_;
    std::set<DeviceAddress> watched_;
};

}  // namespace zobi::platform::bluez
