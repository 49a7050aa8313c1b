#include "zobi/platform/simulation/GATTServer.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "zobi/platform/standard/ExceptionKeeper.h"

namespace zobi::platform::simulation {

namespace {

void checkSize(std::size_t size) {
    if (size > maximumValueSize) {
        throw std::invalid_argument("a characteristic's value has up to " + std::to_string(maximumValueSize) +
                                    " bytes");
    }
}

}  // namespace

GATTServer::GATTServer(RunLoop& runLoop, std::vector<ServiceDescription>& services,
                       std::function<void()> valueChanged)
    : runLoop_(runLoop), services_(services), valueChanged_(std::move(valueChanged)) {
    for (ServiceDescription& service : services_) {
        for (CharacteristicDescription& characteristic : service.characteristics) {
            if (!characteristic.value) characteristic.value.emplace();
            checkSize(characteristic.value->size());
            checkSize(characteristic.width);
            const auto& generated = characteristic.generated;
            if (generated && (!(generated->interval > 0) || !generated->next)) {
                throw std::invalid_argument("a generated value has an interval above 0 s, and a generator");
            }
        }
    }
}

GATTServer::~GATTServer() {
    endLink();
}

std::optional<std::span<const std::uint8_t>> GATTServer::value(const CBUUID& characteristic) const {
    for (const ServiceDescription& service : services_) {
        for (const CharacteristicDescription& candidate : service.characteristics) {
            if (candidate.uuid == characteristic) return *candidate.value;
        }
    }
    return std::nullopt;
}

void GATTServer::setValue(const CBUUID& characteristic, const std::vector<std::uint8_t>& value) {
    changeEachOrThrow(characteristic, [&](GATTPlace place) { setValueAt(place, value); });
}

void GATTServer::setValueIfPresent(const CBUUID& characteristic, const std::vector<std::uint8_t>& value) {
    changeEach(characteristic, [&](GATTPlace place) { setValueAt(place, value); });
}

void GATTServer::setReadError(const CBUUID& characteristic, const std::optional<NSError>& error) {
    changeEachOrThrow(characteristic, [&](GATTPlace place) { changeable(place).readError = error; });
}

void GATTServer::setWriteError(const CBUUID& characteristic, const std::optional<NSError>& error) {
    changeEachOrThrow(characteristic, [&](GATTPlace place) { changeable(place).writeError = error; });
}

void GATTServer::setNotifyError(const CBUUID& characteristic, const std::optional<NSError>& error) {
    changeEachOrThrow(characteristic, [&](GATTPlace place) { changeable(place).notifyError = error; });
}

void GATTServer::setDiscoveryError(const CBUUID& service, const std::optional<NSError>& error) {
    bool isThere = false;
    for (ServiceDescription& candidate : services_) {
        if (candidate.uuid != service) continue;
        candidate.discoveryError = error;
        isThere = true;
    }
    if (!isThere) throw std::invalid_argument("the device has no service " + service.UUIDString());
}

void GATTServer::write(GATTPlace place, std::vector<std::uint8_t> value) {
    const std::size_t width = at(place).width;
    if (value.size() < width) value.insert(value.begin(), width - value.size(), 0);
    changeable(place).value = std::move(value);
    valueChanged_();
}

void GATTServer::beginLink(Subscriber subscriber, std::minstd_rand& random) {
    subscriber_ = std::move(subscriber);
    ExceptionKeeper exceptions;
    for (std::size_t s = 0; s < services_.size(); ++s) {
        for (std::size_t c = 0; c < services_[s].characteristics.size(); ++c) {
            const GATTPlace place{s, c};
            const auto& generated = at(place).generated;
            if (!generated) continue;
            exceptions.run([&] { generate(place, random); });
            generators_.push_back(
                runLoop_.every(generated->interval, [=, this, &random] { generate(place, random); }));
        }
    }
    exceptions.rethrow();
}

void GATTServer::endLink() {
    for (const auto& generator : generators_) generator->invalidate();
    generators_.clear();
    subscriber_ = nullptr;
}

bool GATTServer::changeEach(const CBUUID& characteristic, const std::function<void(GATTPlace)>& change) {
    bool isThere = false;
    for (std::size_t s = 0; s < services_.size(); ++s) {
        for (std::size_t c = 0; c < services_[s].characteristics.size(); ++c) {
            if (services_[s].characteristics[c].uuid != characteristic) continue;
            change({s, c});
            isThere = true;
        }
    }
    return isThere;
}

void GATTServer::changeEachOrThrow(const CBUUID& characteristic,
                                   const std::function<void(GATTPlace)>& change) {
    if (changeEach(characteristic, change)) return;
    throw std::invalid_argument("the device has no characteristic " + characteristic.UUIDString());
}

void GATTServer::setValueAt(GATTPlace place, std::vector<std::uint8_t> value) {
    checkSize(value.size());
    changeable(place).value = std::move(value);
    valueChanged_();
    if (subscriber_) subscriber_(place, *at(place).value);
}

void GATTServer::generate(GATTPlace place, std::minstd_rand& random) {
    setValueAt(place, at(place).generated->next(random));
}

CharacteristicDescription& GATTServer::changeable(GATTPlace place) {
    return services_[place.service].characteristics[place.characteristic];
}

}  // namespace zobi::platform::simulation
