#pragma once

#include <memory>
#include <string>
#include <vector>

#include "zobi/platform/CBUUID.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/standard/StandardPlatform.h"

namespace zobi::platform::bluez {

/// What the parts of this radio are made with; it is not for applications.
struct RadioContext;

/// Options of `BlueZPlatform`.
struct BlueZOptions {
    /// The adapter to use, by its name ("hci0") or its address ("00:00:5E:00:53:01"). If empty, one that is
    /// powered on, else any one. It is used until it is removed, or is off while another one is on.
    std::string adapter;
    /// A device that advertises or offers one of these services is disconnected if it is linked when the
    /// radio starts, or in the 45 s after, and not by this platform: a program that was killed leaves its
    /// link up, and the device silent. A link that another program uses is ended as well. Empty for none.
    std::vector<CBUUID> endedServices = {};
};

/// A link to a device that a platform has found, and not made.
struct ForeignLink {
    /// The address of the device, such as "00:00:5E:00:53:02".
    std::string address;
    /// Its name; empty if it has none.
    std::string name;
    /// Whether the radio ended it: see `BlueZOptions::endedServices`.
    bool isEnded = false;
};

/// A platform with the Bluetooth radio of a Linux machine, in real time. It uses BlueZ over the system D-Bus,
/// and needs no privileges if the bus policy lets its user reach BlueZ.
///
///     BlueZPlatform platform;
///     const auto central = platform.makeCentralManager(delegate);
///     platform.runLoop().run();
///     platform.shutDown();
///
/// If the radio cannot be used, its central managers report a state other than powered on, and
/// `radioCondition` and a line of the log say why and what a user can do about it. BlueZ and the adapter may
/// come and go at any time.
///
/// While it connects to a device, the scan pauses for up to 4 s. A link that the application ends takes 2 s
/// to end. A link belongs to the machine: who ends it, for example another program or another central manager
/// of this process, ends it for all.
class ZOBI_EXPORT BlueZPlatform final : public StandardPlatform {
public:
    /// Connects to nothing yet: the first central manager does.
    /// @throws std::system_error if the process has no descriptor left.
    explicit BlueZPlatform(BlueZOptions options = {});
    ~BlueZPlatform() override;

    /// The links that were up when the first central manager started, or came up in the 45 s after, and that
    /// are none of this platform's: left by a program that was killed, or used by one that runs. Devices that
    /// are paired with this machine are left out. A device does not advertise while it is linked; a line of
    /// the log tells of each. Main thread only.
    const std::vector<ForeignLink>& foreignLinks() const;

    /// What the parts of this radio are made with. Not for applications.
    const RadioContext& context() const { return *context_; }

protected:
    std::shared_ptr<StandardCentral> makeCentral(std::weak_ptr<CBCentralManagerDelegate> delegate) override;

private:
    std::unique_ptr<RadioContext> context_;
};

}  // namespace zobi::platform::bluez
