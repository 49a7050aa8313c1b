#pragma once

#include <memory>

#include "tools/zobiconnect/monitor/Sightings.h"
#include "zobi/platform/standard/ForwardingPlatform.h"

namespace zobi::tool {

/// Another platform, whose central managers also note what they hear in a list of sightings.
///
/// The library keeps neither signal strengths nor the values that a beacon advertises after it was first
/// seen. The tool shows both, and takes them from where the library has its own: between it and the radio.
class ObservedPlatform final : public platform::ForwardingPlatform {
public:
    using ForwardingPlatform::ForwardingPlatform;
    ~ObservedPlatform() override { destroyWrapped(); }
    ObservedPlatform(const ObservedPlatform&) = delete;
    ObservedPlatform& operator=(const ObservedPlatform&) = delete;

    /// An event goes on to `delegate` first, and is noted only if the delegate does not refuse it.
    std::shared_ptr<platform::CBCentralManager> makeCentralManager(
        std::weak_ptr<platform::CBCentralManagerDelegate> delegate) override;

    Sightings& sightings() { return sightings_; }

private:
    Sightings sightings_;
};

}  // namespace zobi::tool
