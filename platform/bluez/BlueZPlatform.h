#pragma once

#include <memory>
#include <string>

#include "zobi/platform/Export.h"
#include "zobi/platform/standard/StandardPlatform.h"

namespace zobi::platform::bluez {

/// What the parts of this radio are made with; it is not for applications.
struct RadioContext;

/// Options of `BlueZPlatform`.
struct BlueZOptions {
    /// The adapter to use, by its name ("hci0") or its address ("00:00:5E:00:53:01"). If empty, one that is
    /// powered on when BlueZ is first found, else any one; it is used until it is removed.
    std::string adapter;
};

/// A platform with the Bluetooth radio of a Linux machine, in real time. It uses BlueZ over the system D-Bus,
/// and needs no privileges if the bus policy lets its user reach BlueZ.
///
///     BlueZPlatform platform;
///     const auto central = platform.makeCentralManager(delegate);
///     platform.runLoop().run();
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

    /// What the parts of this radio are made with. Not for applications.
    const RadioContext& context() const { return *context_; }

protected:
    std::shared_ptr<StandardCentral> makeCentral(std::weak_ptr<CBCentralManagerDelegate> delegate) override;

private:
    std::unique_ptr<RadioContext> context_;
};

}  // namespace zobi::platform::bluez
