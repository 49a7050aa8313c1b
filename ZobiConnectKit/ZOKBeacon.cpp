#include "ZobiConnectKit/ZOKBeacon.h"

#include <string_view>

using zobi::platform::NSNumber;

namespace {

constexpr std::string_view firmwareVersionKey = "firmwareVersion";
constexpr std::string_view majorKey = "major";
constexpr std::string_view minorKey = "minor";

}  // namespace

// Not in the class, where making a record would clear all its bytes first.
ZOKBeacon::ZOKBeacon() = default;

std::shared_ptr<ZOKBeacon> ZOKBeacon::copy() const {
    auto copy = std::make_shared<ZOKBeacon>();
    copyInto(*copy);
    return copy;
}

void ZOKBeacon::copyInto(ZOKBeacon& copy) const {
    copy.firmwareVersion_ = firmwareVersion_;
    copy.major_ = major_;
    copy.minor_ = minor_;
}

void ZOKBeacon::encodeWithCoder(zobi::platform::NSCoder& coder) const {
    coder.encodeTextForKey(firmwareVersion_, firmwareVersionKey);
    coder.encodeNumberForKey(major_, majorKey);
    coder.encodeNumberForKey(minor_, minorKey);
}

void ZOKBeacon::initWithCoder(const zobi::platform::NSCoder& coder) {
    auto firmwareVersion = coder.decodeTextForKey(firmwareVersionKey);
    const NSNumber major = coder.decodeNumberForKey(majorKey);
    const NSNumber minor = coder.decodeNumberForKey(minorKey);
    firmwareVersion_ = std::move(firmwareVersion);
    major_ = major;
    minor_ = minor;
}

std::string ZOKBeacon::description() const {
    return "<ZOKBeacon " + macAddress_.value_or("(null)") + " major " + major_.description() + " minor " +
           minor_.description() + " version " + scanRspVersion_.description() + " battery " +
           advertBatteryLevel_.description() + " temperature " + temperature_.description() + " action " +
           advertAction_.description() + ">";
}
