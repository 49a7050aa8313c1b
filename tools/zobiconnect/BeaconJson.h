#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "tools/zobiconnect/Sightings.h"

namespace zobiconnect {

using OrderedJson = nlohmann::ordered_json;

/// What an advertisement told and `timestamp`, under the record's own names; null for what is absent.
OrderedJson beaconJson(const ZOKBeacon& beacon);

/// What the latest advertisement told besides the beacon's identity; null when there was none.
OrderedJson latestJson(const Sighting& sighting);

/// The object in one line, with its line feed.
std::string jsonLine(const OrderedJson& object);

}  // namespace zobiconnect
