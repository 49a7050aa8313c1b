#pragma once

#include <memory>

#include "platform/Export.h"
#include "platform/Platform.h"
#include "platform/standard/StandardApplication.h"
#include "platform/standard/StandardClock.h"
#include "platform/standard/StandardLog.h"
#include "platform/standard/StandardNotificationCenter.h"
#include "platform/standard/StandardRunLoop.h"
#include "platform/standard/Waiting.h"

namespace platform {

/// Everything of a platform but its radio: a port derives from it and overrides `makeCentralManager`.
/// As it stands, its central managers report that Bluetooth is unsupported.
///
/// It logs to stderr until another sink is set.
class ZOK_EXPORT StandardPlatform : public Platform {
public:
    enum class Time { real, virtualTime };

    /// @param waiting how the run loop waits; not null.
    StandardPlatform(Time time, std::unique_ptr<Waiting> waiting);
    /// A derived class calls `shutDown` in its own destructor, while what its radio needs still stands.
    ~StandardPlatform() override;
    StandardPlatform(const StandardPlatform&) = delete;
    StandardPlatform& operator=(const StandardPlatform&) = delete;

    std::shared_ptr<CBCentralManager> makeCentralManager(
        std::weak_ptr<CBCentralManagerDelegate> delegate) override;
    StandardApplication& application() override;
    StandardNotificationCenter& notificationCenter() override;
    StandardRunLoop& runLoop() override;
    Clock& clock() override;
    StandardLog& log() override;

    /// The clock that can be set and moved; null in real time.
    VirtualTime* virtualTime();

protected:
    /// Clears timers, queue and observers, and lets go of the managers that they hold.
    void shutDown();

private:
    SystemTime systemTime_;
    std::unique_ptr<VirtualTime> virtualTime_;
    StandardLog log_;
    StandardRunLoop runLoop_;
    StandardNotificationCenter notificationCenter_;
    StandardApplication application_;
};

}  // namespace platform
