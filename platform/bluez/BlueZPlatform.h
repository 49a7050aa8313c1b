#pragma once

#include <memory>
#include <string>

#include "platform/Export.h"
#include "platform/standard/PollWaiting.h"
#include "platform/standard/StandardPlatform.h"

namespace platform::bluez {

class PeripheralManager;
struct RadioContext;

/// How the radio of this machine is used.
struct BlueZOptions {
    /// Which adapter: its name ("hci0"), or its address ("00:00:5E:00:53:01"). Empty for one that is powered
    /// on when the service is first seen, or else for any; it is used until it goes.
    std::string adapter;
};

/// A platform over the real radio of a Linux machine: the Bluetooth service BlueZ, reached over the system
/// bus, in real time. It needs no privileges where the bus lets its user reach the service.
///
///     Platform::install(std::make_unique<BlueZPlatform>());
///     auto manager = ZOKManager::shared();
///     ...
///     Platform::current().runLoop().run();
///
/// What is in the way of the radio is told by the state of its central managers and, with what a user can do
/// about it, by a line of the log. Service and adapter may come and go at any time. An attempt to connect to
/// a beacon pauses the scan for up to 4 s. The end of a link that the application asks for takes 2 s. A link
/// belongs to the machine: whoever ends it, another central manager of this process included, ends it for
/// all.
class ZOK_EXPORT BlueZPlatform final : public StandardPlatform {
public:
    explicit BlueZPlatform(BlueZOptions options = {});
    ~BlueZPlatform() override;

    std::shared_ptr<CBCentralManager> makeCentralManager(
        std::weak_ptr<CBCentralManagerDelegate> delegate) override;

private:
    friend PeripheralManager;

    BlueZPlatform(BlueZOptions options, PollWaiting* waiting);

    std::unique_ptr<RadioContext> context_;
};

}  // namespace platform::bluez
