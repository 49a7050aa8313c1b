#pragma once

#include <memory>

#include "platform/CBCentralManager.h"
#include "platform/Clock.h"
#include "platform/Export.h"
#include "platform/Log.h"
#include "platform/NSNotificationCenter.h"
#include "platform/RunLoop.h"
#include "platform/UIApplication.h"

namespace platform {

/// Everything the library needs of the world outside it.
///
/// Managers, central managers and peripherals refer to their platform without owning it: a platform outlives
/// every use of what was made on it. Its destructor first clears its timers, its queue and its observers,
/// and with them lets go of the managers that those hold.
class ZOK_EXPORT Platform {
public:
    virtual ~Platform() = default;

    /// A central manager of its own for `delegate`, which is not owned. Only queues the start of the radio on
    /// the main queue, so it is safe from any thread.
    virtual std::shared_ptr<CBCentralManager> makeCentralManager(
        std::weak_ptr<CBCentralManagerDelegate> delegate) = 0;

    virtual UIApplication& application() = 0;
    virtual NSNotificationCenter& notificationCenter() = 0;
    virtual RunLoop& runLoop() = 0;
    virtual Clock& clock() = 0;
    virtual Log& log() = 0;

    /// The process's platform: the one that was installed or, with none installed by the first call, one that
    /// has everything but a radio (the state of Bluetooth is then unsupported). Never destroyed. Safe from
    /// any thread.
    static Platform& current();

    /// Makes `platform` the process's own, for good. Call it once, before anything uses `current`.
    /// @throws std::logic_error when a platform is current already, std::invalid_argument for null.
    static void install(std::unique_ptr<Platform> platform);
};

}  // namespace platform
