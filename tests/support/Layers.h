#pragma once

#include <memory>
#include <utility>

#include "zobi/platform/standard/ForwardingPlatform.h"
#include "zobi/platform/standard/WrappingCentral.h"

/// Stands between a platform and its users, and changes nothing.
class Layer final : public zobi::platform::ForwardingPlatform {
public:
    using ForwardingPlatform::ForwardingPlatform;

    std::shared_ptr<zobi::platform::CBCentralManager> makeCentralManager(
        std::weak_ptr<zobi::platform::CBCentralManagerDelegate> delegate) override {
        return insert(std::make_shared<Central>(std::move(delegate)));
    }

private:
    using Peripheral = zobi::platform::ForwardingPeripheral;

    struct Central final : zobi::platform::WrappingCentral<Peripheral> {
        using WrappingCentral::WrappingCentral;
        std::shared_ptr<Peripheral> makeWrapper(
            const std::shared_ptr<zobi::platform::CBPeripheral>& wrapped) override {
            return std::make_shared<Peripheral>(wrapped);
        }
    };
};

/// Two layers over a platform.
inline std::unique_ptr<zobi::platform::Platform> inLayers(
    std::unique_ptr<zobi::platform::Platform> platform) {
    return std::make_unique<Layer>(std::make_unique<Layer>(std::move(platform)));
}
