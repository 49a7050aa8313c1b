#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "platform/bluez/bus/MessageReader.h"

namespace zobi::platform::bluez {

/// What a message of the wire says before its body. Texts and body are views into the message, and empty if
/// it has none.
struct MessageHeader {
    enum class Type : std::uint8_t { call = 1, reply = 2, error = 3, signal = 4 };

    Type type{};
    /// Of the call that a reply or an error answers.
    std::uint32_t replySerial = 0;
    std::string_view path;
    std::string_view interface;
    std::string_view member;
    std::string_view errorName;
    std::string_view destination;
    std::string_view sender;
    std::string_view signature;
    std::span<const std::uint8_t> body;
    /// Whether the numbers of the message are in the byte order that this machine has not.
    bool isSwapped = false;

    /// How many bytes tell how long a message is.
    static constexpr std::size_t fixedSize = 16;
    /// The length of the whole message, from its first bytes.
    /// @param start `fixedSize` bytes at least.
    /// @returns nothing if no message starts so, or one that is longer than any may be.
    static std::optional<std::size_t> sizeOfMessage(std::span<const std::uint8_t> start);
    static Type typeOf(std::span<const std::uint8_t> message) { return Type{message[1]}; }
    /// @param message a whole one, whose length `sizeOfMessage` has told.
    /// @returns nothing for what is no message, or lacks what one of its type needs.
    static std::optional<MessageHeader> of(std::span<const std::uint8_t> message);

    MessageReader reader() const { return {body, signature, isSwapped}; }

private:
    bool hasWhatItsTypeNeeds() const;
};

}  // namespace zobi::platform::bluez
