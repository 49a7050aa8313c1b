#include "zobi/platform/standard/KeyedArchive.h"

#include <bit>
#include <limits>
#include <stdexcept>

#include "platform/UTF8.h"

namespace zobi::platform {

namespace {

/// The major types, in the order of their numbers.
enum class Type : std::uint8_t { unsignedInteger, negativeInteger, bytes, text, array, map, tag, simple };

// The additional information of an item: its argument itself, or how many bytes of argument follow (1, 2, 4
// or 8, by a power of two).
constexpr std::uint8_t oneByteArgument = 24;
constexpr std::uint8_t eightByteArgument = 27;
constexpr std::uint8_t indefiniteLength = 31;

constexpr std::uint8_t nullByte = 0xF6;
constexpr std::uint8_t breakByte = 0xFF;

void appendHead(std::vector<std::uint8_t>& data, Type type, std::uint64_t argument) {
    const unsigned typeBits = static_cast<unsigned>(type) << 5;
    if (argument < oneByteArgument) {
        data.push_back(static_cast<std::uint8_t>(typeBits | argument));
        return;
    }
    unsigned width = 1;
    while (width < 8 && argument >> (width * 8) != 0) width *= 2;
    const auto power = static_cast<unsigned>(std::countr_zero(width));
    data.push_back(static_cast<std::uint8_t>(typeBits | (oneByteArgument + power)));
    while (width-- > 0) data.push_back(static_cast<std::uint8_t>(argument >> (width * 8)));
}

void appendText(std::vector<std::uint8_t>& data, std::string_view text) {
    appendHead(data, Type::text, text.size());
    data.insert(data.end(), text.begin(), text.end());
}

[[noreturn]] void refuse(std::optional<std::size_t> offset, std::optional<std::string_view> key,
                         std::string_view reason) {
    std::string message = "keyed archive";
    if (offset) message += ", offset " + std::to_string(*offset);
    if (key) message.append(", key \"").append(*key).append("\"");
    throw std::invalid_argument(message.append(": ").append(reason));
}

}  // namespace

void NSKeyedArchiver::encodeTextForKey(const std::optional<std::string>& text, std::string_view key) {
    if (text && !isValidUTF8(*text)) refuse(std::nullopt, key, "the text is not UTF-8");
    appendKey(key);
    if (text) {
        appendText(entries_, *text);
    } else {
        entries_.push_back(nullByte);
    }
}

void NSKeyedArchiver::encodeNumberForKey(NSNumber number, std::string_view key) {
    appendKey(key);
    const std::int64_t value = number.integerValue();
    if (!number.hasValue()) {
        entries_.push_back(nullByte);
    } else if (value >= 0) {
        appendHead(entries_, Type::unsignedInteger, static_cast<std::uint64_t>(value));
    } else {
        appendHead(entries_, Type::negativeInteger, static_cast<std::uint64_t>(-1 - value));
    }
}

std::optional<std::string> NSKeyedArchiver::decodeTextForKey(std::string_view) const {
    throw std::logic_error("keyed archive: an archiver does not decode");
}

NSNumber NSKeyedArchiver::decodeNumberForKey(std::string_view) const {
    throw std::logic_error("keyed archive: an archiver does not decode");
}

std::vector<std::uint8_t> NSKeyedArchiver::encodedData() const {
    std::vector<std::uint8_t> data;
    appendHead(data, Type::map, keys_.size());
    data.insert(data.end(), entries_.begin(), entries_.end());
    if (data.size() > keyedArchiveMaximumSize) {
        throw std::length_error("keyed archive: " + std::to_string(data.size()) +
                                " bytes are more than an archive may have");
    }
    return data;
}

void NSKeyedArchiver::appendKey(std::string_view key) {
    if (!isValidUTF8(key)) refuse(std::nullopt, key, "the key is not UTF-8");
    if (!keys_.emplace(key).second) refuse(std::nullopt, key, "the key is repeated");
    appendText(entries_, key);
}

/// Reads items one after another. Does not own the data.
class NSKeyedUnarchiver::Reader {
public:
    explicit Reader(std::span<const std::uint8_t> data) : data_(data) {}

    std::map<std::string, Value, std::less<>> readArchive() {
        if (data_.size() > keyedArchiveMaximumSize) {
            fail(keyedArchiveMaximumSize, "the data is longer than an archive may be");
        }
        readHead();
        if (type_ != Type::map) fail("the archive is not a map");
        std::map<std::string, Value, std::less<>> values;
        // Each entry takes a byte at least or fails, so the data runs out long before a claimed count that it
        // does not have.
        for (std::uint64_t left = argument_; left > 0; --left) {
            readHead();
            if (type_ != Type::text) fail("the key is not a text");
            const auto [entry, isNew] = values.try_emplace(readText());
            key_ = entry->first;
            if (!isNew) fail("the key is repeated");
            entry->second = readValue();
            key_.reset();
        }
        if (offset_ < data_.size()) fail(offset_, "the data goes on after the archive");
        return values;
    }

private:
    /// Reads what the next item begins with.
    void readHead() {
        start_ = offset_;
        if (start_ == data_.size()) fail("the data ends before the archive does");
        const std::uint8_t initial = data_[offset_++];
        type_ = static_cast<Type>(initial >> 5);
        argument_ = initial & 0x1F;
        if (argument_ < oneByteArgument) return;
        if (initial == breakByte) fail("a break has nothing to end");
        if (argument_ == indefiniteLength) fail("the item is of no definite length");
        if (argument_ > eightByteArgument) fail("the additional information is reserved");
        const auto bytes = readBytes(std::uint64_t{1} << (argument_ - oneByteArgument));
        argument_ = 0;
        for (const std::uint8_t byte : bytes) argument_ = argument_ << 8 | byte;
    }

    std::span<const std::uint8_t> readBytes(std::uint64_t count) {
        if (count > data_.size() - offset_) fail("the data ends inside an item");
        const auto bytes = data_.subspan(offset_, static_cast<std::size_t>(count));
        offset_ += bytes.size();
        return bytes;
    }

    std::string readText() {
        const auto bytes = readBytes(argument_);
        std::string text(bytes.begin(), bytes.end());
        if (!isValidUTF8(text)) fail("the text is not UTF-8");
        return text;
    }

    Value readValue() {
        readHead();
        Value value{start_, std::nullopt, {}};
        if (type_ == Type::text) {
            value.text = readText();
        } else if (type_ == Type::unsignedInteger || type_ == Type::negativeInteger) {
            // A negative integer's argument is -1 minus its value, so one bound serves both.
            if (argument_ > std::uint64_t{std::numeric_limits<std::int32_t>::max()}) {
                fail("the integer is beyond 32 signed bits");
            }
            const auto number = static_cast<std::int32_t>(argument_);
            value.number = NSNumber::numberWithInt(type_ == Type::negativeInteger ? -1 - number : number);
        } else if (data_[start_] != nullByte) {
            fail("the value is neither a text nor an integer nor null");
        }
        return value;
    }

    [[noreturn]] void fail(std::string_view reason) const { fail(start_, reason); }
    [[noreturn]] void fail(std::size_t offset, std::string_view reason) const {
        refuse(offset, key_, reason);
    }

    std::span<const std::uint8_t> data_;
    std::size_t offset_ = 0;
    // The item that is being read: where it begins, its head, and what key it stands under.
    std::size_t start_ = 0;
    Type type_{};
    std::uint64_t argument_ = 0;
    std::optional<std::string_view> key_;
};

NSKeyedUnarchiver::NSKeyedUnarchiver(std::span<const std::uint8_t> data)
    : values_(Reader(data).readArchive()) {}

void NSKeyedUnarchiver::encodeTextForKey(const std::optional<std::string>&, std::string_view) {
    throw std::logic_error("keyed archive: an unarchiver does not encode");
}

void NSKeyedUnarchiver::encodeNumberForKey(NSNumber, std::string_view) {
    throw std::logic_error("keyed archive: an unarchiver does not encode");
}

std::optional<std::string> NSKeyedUnarchiver::decodeTextForKey(std::string_view key) const {
    const auto found = values_.find(key);
    if (found == values_.end()) return std::nullopt;
    const auto& [offset, text, number] = found->second;
    if (number.hasValue()) refuse(offset, key, "the value is not a text");
    return text;
}

NSNumber NSKeyedUnarchiver::decodeNumberForKey(std::string_view key) const {
    const auto found = values_.find(key);
    if (found == values_.end()) return {};
    const auto& [offset, text, number] = found->second;
    if (text) refuse(offset, key, "the value is not an integer");
    return number;
}

}  // namespace zobi::platform
