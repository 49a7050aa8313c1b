#pragma once

#include <memory>

#include "zobi/platform/standard/ForwardingPlatform.h"

/// Stands between a platform and its users, and changes nothing.
class Layer final : public zobi::platform::ForwardingPlatform {
public:
    using ForwardingPlatform::ForwardingPlatform;

    std::shared_ptr<zobi::platform::CBCentralManager> makeCentralManager(
        std::weak_ptr<zobi::platform::CBCentralManagerDelegate> delegate) override;
};

/// Two layers over a platform.
std::unique_ptr<zobi::platform::Platform> inLayers(std::unique_ptr<zobi::platform::Platform> platform);
