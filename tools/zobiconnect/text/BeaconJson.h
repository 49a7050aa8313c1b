#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "tools/zobiconnect/beacon/BeaconClient.h"
#include "tools/zobiconnect/monitor/Sightings.h"

namespace zobi::tool {

using OrderedJson = nlohmann::ordered_json;

// Null for what is absent.
OrderedJson numberJson(platform::NSNumber number);
OrderedJson textJson(const std::optional<std::string>& text);
OrderedJson valueJson(const std::optional<Value>& value);

/// What an advertisement told and `timestamp`, under the record's own names; null for what is absent.
OrderedJson beaconJson(const ZOKBeacon& beacon);

/// What the latest advertisement told besides the beacon's identity; null when there was none.
OrderedJson latestJson(const Sighting& sighting);

/// How the beacon was heard in the last minute.
/// @param now of the monotonic clock.
OrderedJson receptionJson(const Reception& reception, Reception::Time now);

/// The object in one line, without a line feed.
std::string jsonText(const OrderedJson& object);

/// The same with its line feed.
std::string jsonLine(const OrderedJson& object);

/// To the millisecond: a clock's further digits are noise.
double rounded(double seconds);

/// An event in one line: its name, its time in seconds since 1970, and what else there is to tell.
std::string eventLine(std::string_view event, double time, const OrderedJson& values);

}  // namespace zobi::tool
