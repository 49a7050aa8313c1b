#pragma once

#include <memory>

#include "zobi/platform/CBCentralManager.h"
#include "zobi/platform/Clock.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/Log.h"
#include "zobi/platform/NSNotificationCenter.h"
#include "zobi/platform/RadioCondition.h"
#include "zobi/platform/RunLoop.h"
#include "zobi/platform/UIApplication.h"

namespace zobi::platform {

/// Everything the library needs from outside: radio, run loop, notifications, application state, clock and
/// log.
///
/// Managers, central managers and peripherals use their platform without owning it: the platform must outlive
/// them. Call `shutDown` before the program ends. The destructor first clears its timers, its queue and its
/// observers, and so releases the managers that these own.
class ZOBI_EXPORT Platform {
public:
    virtual ~Platform();

    /// Makes a central manager for `delegate`, which it does not own. The radio is started by a task on the
    /// main queue. Safe from any thread.
    virtual std::shared_ptr<CBCentralManager> makeCentralManager(
        std::weak_ptr<CBCentralManagerDelegate> delegate) = 0;

    /// Ends the scan, the attempts to connect and the links of all its central managers, and runs the loop
    /// until the radio has ended them. Call it when the program's own run of the loop is over: a link that is
    /// still up when the process ends may stay up, and its device does not advertise meanwhile.
    ///
    /// The delegates are told, as of ends that were asked for. From the call on nothing else begins, for
    /// good: a scan does not start, and an attempt fails with `CBError::operationCancelled`. `RunLoop::stop`
    /// does not end the wait. An exception that leaves the loop is thrown when the wait is over.
    /// @param seconds how long to wait at most, of the platform's clock. A Linux machine takes 2 s for a
    /// link.
    /// @return whether all has ended. Another call waits for what is left.
    /// @throws std::logic_error if called from inside a callback of the loop, before anything ends.
    virtual bool shutDown(double seconds = 5) = 0;

    /// Whether the radio can be used, and if not, why, as the central managers found it last; unknown before
    /// the first has. `RadioConditionDidChangeNotification` tells of changes. Main thread only.
    virtual RadioCondition radioCondition() const = 0;

    /// The state of the application.
    virtual UIApplication& application() = 0;
    /// Delivers notifications.
    virtual NSNotificationCenter& notificationCenter() = 0;
    /// The loop of the main thread.
    virtual RunLoop& runLoop() = 0;
    /// The clocks.
    virtual Clock& clock() = 0;
    /// The log.
    virtual Log& log() = 0;

    /// The platform of the process: the installed one. If none is installed by the first call, this makes and
    /// installs a `StandardPlatform` in real time, which has no radio. Never destroyed. Safe from any thread.
    static Platform& current();

    /// Makes `platform` the platform of the process, for its whole life. Call it once, before the first use
    /// of `current`.
    /// @throws std::logic_error if there is a current platform already.
    /// @throws std::invalid_argument for null.
    static void install(std::unique_ptr<Platform> platform);
};

}  // namespace zobi::platform
