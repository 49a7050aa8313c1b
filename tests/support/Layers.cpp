#include "Layers.h"

#include <utility>

#include "zobi/platform/standard/ForwardingPlatform.h"
#include "zobi/platform/standard/WrappingCentral.h"

using namespace zobi::platform;

namespace {

struct LayerCentral final : WrappingCentral<ForwardingPeripheral> {
    using WrappingCentral::WrappingCentral;
    std::shared_ptr<ForwardingPeripheral> makeWrapper(const std::shared_ptr<CBPeripheral>& wrapped) override {
        return std::make_shared<ForwardingPeripheral>(wrapped);
    }
};

struct Layer final : ForwardingPlatform {
    using ForwardingPlatform::ForwardingPlatform;
    std::shared_ptr<CBCentralManager> makeCentralManager(
        std::weak_ptr<CBCentralManagerDelegate> delegate) override {
        return insert(std::make_shared<LayerCentral>(std::move(delegate)));
    }
};

}  // namespace

std::unique_ptr<Platform> inLayers(std::unique_ptr<Platform> platform) {
    return std::make_unique<Layer>(std::make_unique<Layer>(std::move(platform)));
}
