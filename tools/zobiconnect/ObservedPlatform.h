#pragma once

#include <memory>

#include "tools/zobiconnect/Sightings.h"
#include "zobi/platform/Platform.h"

namespace zobi::tool {

/// Another platform, whose central managers also note what they hear in a list of sightings.
///
/// The library keeps neither signal strengths nor the values that a beacon advertises after it was first
/// seen. The tool shows both, and takes them from where the library has its own: between it and the radio.
class ObservedPlatform final : public platform::Platform {
public:
    explicit ObservedPlatform(std::unique_ptr<platform::Platform> observed);

    /// An event goes on to `delegate` first, and is noted only if the delegate does not refuse it.
    std::shared_ptr<platform::CBCentralManager> makeCentralManager(
        std::weak_ptr<platform::CBCentralManagerDelegate> delegate) override;
    platform::UIApplication& application() override { return observed_->application(); }
    platform::NSNotificationCenter& notificationCenter() override { return observed_->notificationCenter(); }
    platform::RunLoop& runLoop() override { return observed_->runLoop(); }
    platform::Clock& clock() override { return observed_->clock(); }
    platform::Log& log() override { return observed_->log(); }

    Sightings& sightings() { return sightings_; }

private:
    // Declared first, for the observed platform's end lets go of central managers that refer to it.
    Sightings sightings_;
    std::unique_ptr<platform::Platform> observed_;
};

}  // namespace zobi::tool
