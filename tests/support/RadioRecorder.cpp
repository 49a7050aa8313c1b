#include "RadioRecorder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "ZobiConnectKit/ZOKGATTProfile.h"

using namespace zobi::platform;

namespace {

class Delegate final : public RadioRecorder {
    using Central = CBCentralManager;
    using Peripheral = const std::shared_ptr<CBPeripheral>&;
    using Service = const std::shared_ptr<CBService>&;
    using Characteristic = const std::shared_ptr<CBCharacteristic>&;
    using Error = const NSError*;

    void centralManagerDidUpdateState(Central& central) override {
        named.insert(&central);
        note("state " + std::to_string(static_cast<int>(central.state())));
    }
    void centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(Central&, Peripheral peripheral,
                                                                  const CBAdvertisementData& data,
                                                                  NSNumber rssi) override {
        EXPECT_FALSE(isInsideCall_);
        const bool hasPayload = std::ranges::find(data.serviceData, ZOKGATTProfile::deviceInformationService,
                                                  &CBServiceData::service) != data.serviceData.end();
        if (describe) {
            note(describe(data, rssi));
        } else if (data.localName != "morvane" || !hasPayload) {
            return;
        }
        sightings.push_back(peripheral);
        onSighting(data);
    }
    void centralManagerDidConnectPeripheral(Central& central, Peripheral peripheral) override {
        noteConnection("connected", true, central, peripheral, nullptr);
    }
    void centralManagerDidFailToConnectPeripheralError(Central& central, Peripheral peripheral,
                                                       Error error) override {
        noteConnection("failed", false, central, peripheral, error);
    }
    void centralManagerDidDisconnectPeripheralError(Central& central, Peripheral peripheral,
                                                    Error error) override {
        noteConnection("disconnected", false, central, peripheral, error);
    }
    void peripheralDidDiscoverServices(Peripheral peripheral, Error error) override {
        noteAnswer("services", peripheral, error);
    }
    void peripheralDidDiscoverCharacteristicsForServiceError(Peripheral peripheral, Service service,
                                                             Error error) override {
        noteAnswer("characteristics " + service->UUID().UUIDString(), peripheral, error);
    }
    void peripheralDidUpdateValueForCharacteristicError(Peripheral peripheral, Characteristic of,
                                                        Error error) override {
        if (const auto value = of->value()) lastValue.assign(value->begin(), value->end());
        noteAnswer("value " + of->UUID().UUIDString(), peripheral, error);
    }
    void peripheralDidWriteValueForCharacteristicError(Peripheral peripheral, Characteristic of,
                                                       Error error) override {
        noteAnswer("written " + of->UUID().UUIDString(), peripheral, error);
    }
    void peripheralDidUpdateNotificationStateForCharacteristicError(Peripheral peripheral, Characteristic of,
                                                                    Error error) override {
        const std::string state = of->isNotifying() ? "notifying " : "not notifying ";
        noteAnswer(state + of->UUID().UUIDString(), peripheral, error);
    }
    void peripheralDidReadRSSIError(Peripheral peripheral, NSNumber rssi, Error error) override {
        EXPECT_TRUE(error || (rssi.integerValue() >= -127 && rssi.integerValue() <= 20));
        noteAnswer("rssi", peripheral, error);
    }

    void noteConnection(const std::string& event, bool isLinked, const Central& central,
                        Peripheral peripheral, Error error) {
        EXPECT_EQ(peripheral->state() == CBPeripheralState::connected, isLinked) << event;
        named.insert({&central, peripheral.get()});
        note(event, error);
    }
    void noteAnswer(const std::string& event, Peripheral peripheral, Error error) {
        EXPECT_EQ(peripheral->state(), CBPeripheralState::connected) << event;
        named.insert(peripheral.get());
        note(event, error);
    }
    void note(std::string event, Error error = nullptr) {
        EXPECT_FALSE(isInsideCall_) << event << " was told from inside a call";
        if (error) {
            event += error->domain() == CBErrorDomain ? " error" : ' ' + error->domain();
            event += ' ' + std::to_string(error->code());
            EXPECT_FALSE(error->localizedDescription().empty());
        }
        onEvent(event);
        events.push_back(std::move(event));
    }
};

}  // namespace

std::shared_ptr<RadioRecorder> RadioRecorder::make() {
    return std::make_shared<Delegate>();
}

void RadioRecorder::quietly(const std::function<void()>& call) {
    isInsideCall_ = true;
    call();
    isInsideCall_ = false;
}

std::shared_ptr<CBCharacteristic> discoveredCharacteristic(const CBPeripheral& peripheral,
                                                           const CBUUID& uuid) {
    if (!peripheral.services()) return nullptr;
    for (const auto& service : *peripheral.services()) {
        if (!service->characteristics()) continue;
        for (const auto& candidate : *service->characteristics()) {
            if (candidate->UUID() == uuid) return candidate;
        }
    }
    return nullptr;
}
