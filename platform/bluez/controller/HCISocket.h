#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "platform/bluez/controller/KernelSocket.h"

namespace zobi::platform::bluez {

/// The raw socket of a controller's Host Controller Interface. Every user may open it, sees its events (the
/// exact reason of each link's end among them), and may send the commands that change nothing, such as the
/// one that measures the signal of a link.
class HCISocket final : public KernelSocket {
public:
    /// Null where there is none to be had.
    static std::shared_ptr<HCISocket> open(std::uint16_t controller, RunLoop& runLoop);

    HCISocket(int descriptor, std::uint16_t controller, RunLoop& runLoop)
        : KernelSocket(descriptor, runLoop), controller_(controller) {}

    LowEnergy lowEnergy() const override { return readLowEnergy(controller_); }
    void watchLink(const DeviceAddress& device) override;
    std::optional<bool> isIncomingLink(const DeviceAddress& device) const override;
    std::optional<unsigned> scanSwitches() const override {
        return isOpen() ? std::optional(scanSwitches_) : std::nullopt;
    }

protected:
    void packetWasRead(std::span<const std::uint8_t> packet) override;
    bool requestRSSI(const DeviceAddress& device) override;

private:
    std::uint16_t controller_;
    // Events name a link by its handle alone.
    std::map<std::uint16_t, DeviceAddress> devices_;
    unsigned scanSwitches_ = 0;
};

}  // namespace zobi::platform::bluez
