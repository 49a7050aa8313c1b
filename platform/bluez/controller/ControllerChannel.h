#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "platform/bluez/controller/DeviceAddress.h"
#include "platform/bluez/controller/LinkEnd.h"
#include "platform/bluez/controller/LowEnergy.h"

namespace zobi::platform::bluez {

/// The way past the Bluetooth service to what it does not tell: why links end and how strong their signal is.
/// Main thread only.
class ControllerChannel {
public:
    ControllerChannel() = default;
    virtual ~ControllerChannel() = default;
    ControllerChannel(const ControllerChannel&) = delete;
    ControllerChannel& operator=(const ControllerChannel&) = delete;

    /// Whether the controller itself is asked. Otherwise it is the kernel, which tells less.
    virtual bool asksController() const { return true; }

    /// Whether the controller has Low Energy, and has it switched on. May take a moment.
    virtual LowEnergy lowEnergy() const { return LowEnergy::unknown; }

    /// False when the controller is gone.
    virtual bool isOpen() const { return true; }

    /// The link to `device` is up. Called at once when that is known.
    virtual void watchLink(const DeviceAddress& device) = 0;

    /// Reads what has arrived, and tells why the link to `device` has ended. Nothing if that is not known, or
    /// not yet: the channel calls what `setOnEvent` was given when it has read more. Forgets the link when it
    /// tells.
    virtual std::optional<LinkEnd> takeLinkEnd(const DeviceAddress& device) = 0;

    /// Whether it was `device` that asked for the link to it, one of LE. Nothing if that is not known.
    virtual std::optional<bool> isIncomingLink(const DeviceAddress& /*device*/) const { return std::nullopt; }

    /// How often the controller has begun or ended a scan, whichever program's, since the channel was opened.
    /// BlueZ begins its scan anew about every 10 s: if the number stays for longer, nothing scans, whatever
    /// BlueZ believes. Nothing if that cannot be seen.
    virtual std::optional<unsigned> scanSwitches() const { return std::nullopt; }

    /// Asks for the signal strength of the link to `device`, in dBm. The answer, nothing for a failure, comes
    /// through the run loop, once; or never, if the controller does not answer. A new request for
    /// the same device drops the answer to the one before.
    virtual void readRSSI(const DeviceAddress& device, std::function<void(std::optional<int>)> answer) = 0;

    /// Sets what is called, through the run loop, when the end of a link was read.
    void setOnEvent(std::function<void()> onEvent) { onEvent_ = std::move(onEvent); }

protected:
    void tellEvent() const {
        if (onEvent_) onEvent_();
    }

private:
    std::function<void()> onEvent_;
};

}  // namespace zobi::platform::bluez
