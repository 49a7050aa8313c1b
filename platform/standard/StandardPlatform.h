#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "zobi/platform/Export.h"
#include "zobi/platform/Platform.h"
#include "zobi/platform/standard/StandardApplication.h"
#include "zobi/platform/standard/StandardCentral.h"
#include "zobi/platform/standard/StandardClock.h"
#include "zobi/platform/standard/StandardLog.h"
#include "zobi/platform/standard/StandardNotificationCenter.h"
#include "zobi/platform/standard/StandardRunLoop.h"
#include "zobi/platform/standard/Waiting.h"

namespace zobi::platform {

/// A platform without a radio: its central managers report the state unsupported. A port derives from it and
/// overrides `makeCentral`.
///
/// It logs to stderr until another sink is set.
class ZOBI_EXPORT StandardPlatform : public Platform {
public:
    /// The clock that the platform runs on.
    enum class Time {
        real,        ///< The clocks of the machine.
        virtualTime  ///< A virtual clock, which moves to the next timer when there is nothing to do.
    };

    /// @param time the clock.
    /// @param waiting how the run loop waits; not null.
    StandardPlatform(Time time, std::unique_ptr<Waiting> waiting);
    /// A derived class calls `clear` in its own destructor, before the members that its radio uses are
    /// destroyed.
    ~StandardPlatform() override;
    StandardPlatform(const StandardPlatform&) = delete;
    StandardPlatform& operator=(const StandardPlatform&) = delete;

    std::shared_ptr<CBCentralManager> makeCentralManager(
        std::weak_ptr<CBCentralManagerDelegate> delegate) final;
    bool shutDown(double seconds = 5) override;
    RadioCondition radioCondition() const override;
    StandardApplication& application() override;
    StandardNotificationCenter& notificationCenter() override;
    StandardRunLoop& runLoop() override;
    Clock& clock() override;
    StandardLog& log() override;

    /// The radio has this condition now, which its port tells before the state that comes of it; the change
    /// is posted from a task of its own. Setting the same condition again does nothing.
    void setRadioCondition(RadioCondition condition);

    /// The virtual clock; null in real time.
    VirtualTime* virtualTime();

protected:
    /// Makes a central manager of the radio, and queues the radio's start on the main queue. Called by any
    /// thread.
    virtual std::shared_ptr<StandardCentral> makeCentral(std::weak_ptr<CBCentralManagerDelegate> delegate);

    /// Removes all timers, queued tasks and observers, and so releases the managers that these own.
    void clear();

private:
    std::vector<std::shared_ptr<StandardCentral>> centrals();

    SystemTime systemTime_;
    std::unique_ptr<VirtualTime> virtualTime_;
    StandardLog log_;
    StandardRunLoop runLoop_;
    StandardNotificationCenter notificationCenter_;
    StandardApplication application_;
    RadioCondition radioCondition_;
    std::mutex centralsMutex_;
    std::vector<std::weak_ptr<StandardCentral>> centrals_;
    bool isShutDown_ = false;
};

}  // namespace zobi::platform
