#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "zobi/platform/standard/StandardPlatform.h"

namespace zobi::tool {

/// The library's decoder without its log lines: what the tool decodes, no radio has just delivered.
class QuietDecoder {
public:
    QuietDecoder()
        : platform_(platform::StandardPlatform::Time::real,
                    std::make_unique<platform::ConditionVariableWaiting>()) {
        platform_.log().setSink(nullptr);
    }

    /// @throws platform::DataRangeError for a payload that ends before its layout does.
    std::shared_ptr<ZOKBeacon> decode(std::span<const std::uint8_t> payload) {
        return ZOKProtocolUtils::beaconFromDataOnPlatform(payload, platform_);
    }

private:
    platform::StandardPlatform platform_;
};

}  // namespace zobi::tool
