#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "zobi/platform/Export.h"

namespace zobi::platform {

/// Codes of the errors in `CBErrorDomain`. They mean the same with every radio.
enum class CBError : int {
    /// The radio does not know why.
    unknown = 0,
    /// The service or characteristic was not discovered over this link.
    invalidHandle = 2,
    /// The link ended before the answer came.
    notConnected = 3,
    /// The radio is off, or was turned off.
    operationCancelled = 5,
    /// The link was lost: no packet was received within the supervision timeout.
    connectionTimeout = 6,
    /// The peripheral ended the link.
    peripheralDisconnected = 7,
    /// The link could not be established.
    connectionFailed = 10,
};

/// The domain of errors of the radio and its links.
inline constexpr std::string_view CBErrorDomain = "CBErrorDomain";

/// Codes of the errors in `CBATTErrorDomain`: the error codes of the Attribute Protocol, with which a
/// peripheral answers a request. These are the usual ones; others are passed on unchanged.
enum class CBATTError : int {
    readNotPermitted = 0x02,             ///< The characteristic cannot be read.
    writeNotPermitted = 0x03,            ///< The characteristic cannot be written in this way.
    requestNotSupported = 0x06,          ///< The peripheral does not support the request.
    invalidAttributeValueLength = 0x0D,  ///< The value is too long or too short.
    unlikelyError = 0x0E,                ///< The peripheral does not say why.
};

/// The domain of errors with which a peripheral answers.
inline constexpr std::string_view CBATTErrorDomain = "CBATTErrorDomain";

/// A failure that a radio reports: a domain, a code of that domain, and a text.
///
/// A callback receives a `const NSError*` that is null for success and valid until the callback returns: copy
/// the error to keep it.
class NSError {
public:
    /// An error of any domain.
    NSError(std::string domain, int code, std::string localizedDescription)
        : domain_(std::move(domain)), code_(code), localizedDescription_(std::move(localizedDescription)) {}

    /// An error of `CBErrorDomain`.
    NSError(CBError code, std::string localizedDescription)
        : NSError(std::string(CBErrorDomain), static_cast<int>(code), std::move(localizedDescription)) {}

    /// An error of `CBATTErrorDomain`.
    NSError(CBATTError code, std::string localizedDescription)
        : NSError(std::string(CBATTErrorDomain), static_cast<int>(code), std::move(localizedDescription)) {}

    /// The domain: `CBErrorDomain`, `CBATTErrorDomain`, or another.
    const std::string& domain() const { return domain_; }
    /// The code: one of `CBError` or `CBATTError` in their domains.
    int code() const { return code_; }
    /// What went wrong, for people, in English.
    const std::string& localizedDescription() const { return localizedDescription_; }

private:
    std::string domain_;
    int code_;
    std::string localizedDescription_;
};

}  // namespace zobi::platform
