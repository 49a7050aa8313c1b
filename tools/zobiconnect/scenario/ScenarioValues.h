#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/zobiconnect/scenario/CheckedJson.h"
#include "zobi/platform/CBUUID.h"
#include "zobi/platform/NSError.h"
#include "zobi/platform/simulation/DeviceDescription.h"

namespace zobi::tool {

// What beacons and events of a scenario file have in common. Each throws `Mistake`.

platform::CBUUID uuidFrom(const nlohmann::json& value, const std::string& path);
platform::CBUUID readUUID(const CheckedObject& object, const std::string& key);

std::vector<std::uint8_t> readHex(const CheckedObject& object, const std::string& key);

/// A characteristic's value.
std::vector<std::uint8_t> valueFrom(const nlohmann::json& value, const std::string& path);

/// Null for none.
std::optional<platform::NSError> readError(const CheckedObject& object, const std::string& key);

std::optional<std::string> readLocalName(const CheckedObject& object);
std::vector<platform::simulation::ServiceData> readServiceData(const CheckedObject& object);
std::uint8_t readBattery(const CheckedObject& object);
std::int32_t readTemperature(const CheckedObject& object);
int readSignalStrength(const CheckedObject& object);

}  // namespace zobi::tool
