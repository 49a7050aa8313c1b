#include "platform/bluez/bus/MessageHeader.h"

#include <bit>

namespace zobi::platform::bluez {

namespace {

// The limit of the protocol.
constexpr std::uint64_t longestMessage = 128ULL * 1024 * 1024;

constexpr std::uint8_t nativeOrder = std::endian::native == std::endian::little ? 'l' : 'B';
constexpr std::uint8_t swappedOrder = nativeOrder == 'l' ? 'B' : 'l';
constexpr std::uint8_t protocolVersion = 1;

struct Sizes {
    std::uint64_t body;
    /// With what comes before the fields, without the padding behind them.
    std::uint64_t header;

    std::uint64_t bodyStart() const { return (header + 7) / 8 * 8; }
};

Sizes sizesIn(std::span<const std::uint8_t> start, bool isSwapped) {
    MessageReader fixed(start.first(MessageHeader::fixedSize), "yyyyuuu", isSwapped);
    for (int i = 0; i < 4; ++i) fixed.skip("y");
    const std::uint32_t body = fixed.uint32();
    fixed.skip("u");
    return {body, MessageHeader::fixedSize + std::uint64_t{fixed.uint32()}};
}

}  // namespace

std::optional<std::size_t> MessageHeader::sizeOfMessage(std::span<const std::uint8_t> start) {
    const bool hasOrder = start[0] == nativeOrder || start[0] == swappedOrder;
    if (!hasOrder || start[3] != protocolVersion) return std::nullopt;
    const Sizes sizes = sizesIn(start, start[0] == swappedOrder);
    const std::uint64_t size = sizes.bodyStart() + sizes.body;
    if (size > longestMessage) return std::nullopt;
    return static_cast<std::size_t>(size);
}

bool MessageHeader::hasWhatItsTypeNeeds() const {
    switch (type) {
        case Type::call:
            return !path.empty() && !member.empty();
        case Type::signal:
            return !path.empty() && !interface.empty() && !member.empty();
        case Type::error:
            return replySerial != 0 && !errorName.empty();
        default:
            return type != Type::reply || replySerial != 0;
    }
}

std::optional<MessageHeader> MessageHeader::of(std::span<const std::uint8_t> message) {
    MessageHeader header;
    header.isSwapped = message[0] == swappedOrder;
    const Sizes sizes = sizesIn(message, header.isSwapped);
    header.body = message.subspan(static_cast<std::size_t>(sizes.bodyStart()));
    header.type = typeOf(message);

    MessageReader reader(message.first(static_cast<std::size_t>(sizes.header)), "yyyyuua(yv)",
                         header.isSwapped);
    for (int i = 0; i < 4; ++i) reader.skip("y");
    for (int i = 0; i < 2; ++i) reader.skip("u");
    bool isComplete = true;
    const auto take = [&](auto& field, const auto& value) {
        if (value) field = *value;
        isComplete = isComplete && value;
    };
    reader.forEach("(yv)", [&] {
        reader.inside([&] {
            // The numbers are the protocol's.
            switch (reader.byte()) {
                case 1:
                    return take(header.path, reader.variantObjectPath());
                case 2:
                    return take(header.interface, reader.variantString());
                case 3:
                    return take(header.member, reader.variantString());
                case 4:
                    return take(header.errorName, reader.variantString());
                case 5:
                    return take(header.replySerial, reader.variantUInt32());
                case 6:
                    return take(header.destination, reader.variantString());
                case 7:
                    return take(header.sender, reader.variantString());
                case 8:
                    return take(header.signature, reader.variantSignature());
                default:
                    return reader.skipVariant();
            }
        });
    });
    if (!reader.isGood() || !isComplete || !header.hasWhatItsTypeNeeds()) return std::nullopt;
    return header;
}

}  // namespace zobi::platform::bluez
