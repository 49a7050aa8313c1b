#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "platform/bluez/controller/ControllerChannel.h"
#include "zobi/platform/RunLoop.h"

namespace zobi::platform::bluez {

/// A Bluetooth socket of the kernel, from which packets are read: what the two kinds of them share.
class KernelSocket : public ControllerChannel, public std::enable_shared_from_this<KernelSocket> {
public:
    /// @param descriptor a socket that does not block, which it takes over.
    KernelSocket(int descriptor, RunLoop& runLoop);
    ~KernelSocket() override;
    KernelSocket(const KernelSocket&) = delete;
    KernelSocket& operator=(const KernelSocket&) = delete;

    std::optional<LinkEnd> takeLinkEnd(const DeviceAddress& device) override;
    void readRSSI(const DeviceAddress& device, std::function<void(std::optional<int>)> answer) override;

    bool isOpen() const override { return descriptor_ >= 0; }

    /// Opens and binds such a socket. Nothing where the kernel or a policy does not let this process.
    /// @param channel which kind, as the kernel numbers them.
    static std::optional<int> open(std::uint16_t device, std::uint16_t channel);

protected:
    /// Reads all packets that have arrived.
    void drain();
    virtual void packetWasRead(std::span<const std::uint8_t> packet) = 0;
    /// Sends a request for the signal strength. False if that cannot be.
    virtual bool requestRSSI(const DeviceAddress& device) = 0;
    bool send(std::span<const std::uint8_t> packet) const;

    void linkHasEnded(const DeviceAddress& device, const LinkEnd& end);
    void linkIsNew(const DeviceAddress& device) { ends_.erase(device); }
    void signalWasRead(const DeviceAddress& device, std::optional<int> rssi);
    int fileDescriptor() const { return descriptor_; }

private:
    void close();

    int descriptor_;
    RunLoop& runLoop_;
    std::shared_ptr<RunLoopSource> source_;
    std::map<DeviceAddress, LinkEnd> ends_;
    std::map<DeviceAddress, std::function<void(std::optional<int>)>> answers_;
};

}  // namespace zobi::platform::bluez
