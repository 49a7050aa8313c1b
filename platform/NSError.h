#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "platform/Export.h"

namespace platform {

/// Codes of an error in `CBErrorDomain`, the same from every radio.
enum class CBError : int {
    /// The radio does not know why.
    unknown = 0,
    /// The service or characteristic is none that was discovered over this link.
    invalidHandle = 2,
    /// The link ended before the answer came.
    notConnected = 3,
    /// The radio is off, or was turned off.
    operationCancelled = 5,
    /// The link was lost: nothing was heard for the supervision timeout.
    connectionTimeout = 6,
    /// The peripheral ended the link.
    peripheralDisconnected = 7,
    /// The link could not be made.
    connectionFailed = 10,
};

inline constexpr std::string_view CBErrorDomain = "CBErrorDomain";

/// Codes of an error in `CBATTErrorDomain`: what a peripheral answered to a request, in the codes of the
/// Attribute Protocol, of which these are the usual ones.
enum class CBATTError : int {
    readNotPermitted = 0x02,
    writeNotPermitted = 0x03,
    requestNotSupported = 0x06,
    invalidAttributeValueLength = 0x0D,
    unlikelyError = 0x0E,
};

inline constexpr std::string_view CBATTErrorDomain = "CBATTErrorDomain";

/// A failure that the radio reports: a domain, a code within it, and a text for people.
///
/// Operations and events that may fail take a `const NSError*`, null for success; it is valid for the
/// length of the call, so copy what is to be kept.
class NSError {
public:
    NSError(std::string domain, int code, std::string localizedDescription)
        : domain_(std::move(domain)), code_(code), localizedDescription_(std::move(localizedDescription)) {}

    /// An error of the Bluetooth domain.
    NSError(CBError code, std::string localizedDescription)
        : NSError(std::string(CBErrorDomain), static_cast<int>(code), std::move(localizedDescription)) {}

    /// An error of the Attribute Protocol's domain.
    NSError(CBATTError code, std::string localizedDescription)
        : NSError(std::string(CBATTErrorDomain), static_cast<int>(code), std::move(localizedDescription)) {}

    const std::string& domain() const { return domain_; }
    int code() const { return code_; }
    const std::string& localizedDescription() const { return localizedDescription_; }

private:
    std::string domain_;
    int code_;
    std::string localizedDescription_;
};

}  // namespace platform
