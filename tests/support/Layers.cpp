#include "Layers.h"

#include <utility>

#include "zobi/platform/standard/WrappingCentral.h"

using namespace zobi::platform;

namespace {

struct LayerCentral final : WrappingCentral<ForwardingPeripheral> {
    using WrappingCentral::WrappingCentral;
    std::shared_ptr<ForwardingPeripheral> makeWrapper(const std::shared_ptr<CBPeripheral>& wrapped) override {
        return std::make_shared<ForwardingPeripheral>(wrapped);
    }
};

}  // namespace

std::shared_ptr<CBCentralManager> Layer::makeCentralManager(
    std::weak_ptr<CBCentralManagerDelegate> delegate) {
    return insert(std::make_shared<LayerCentral>(std::move(delegate)));
}

std::unique_ptr<Platform> inLayers(std::unique_ptr<Platform> platform) {
    return std::make_unique<Layer>(std::make_unique<Layer>(std::move(platform)));
}
