#include "zobi/platform/standard/KeyedArchive.h"

#include <bit>
#include <limits>
#include <stdexcept>
#include <utility>

#include "platform/UTF8.h"

namespace zobi::platform {

namespace {

/// The major types, in the order of their numbers.
enum class Type : std::uint8_t { unsignedInteger, negativeInteger, bytes, text, array, map, tag, simple };

// The additional information of an item: its argument itself, how many bytes of argument follow (1, 2, 4 or
// 8, by a power of two), or no argument at all.
constexpr std::uint8_t oneByteArgument = 24;
constexpr std::uint8_t eightByteArgument = 27;
constexpr std::uint8_t noArgument = 31;

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

[[noreturn]] void refuseToWrite(std::string_view key, std::string_view reason) {
    std::string message = "keyed archive, key \"";
    throw std::invalid_argument(message.append(key).append("\": ").append(reason));
}

/// What an item begins with.
struct Head {
    std::size_t offset;
    Type type;
    std::uint8_t information;
    std::uint64_t argument;

    /// For a string, an array or a map: whether a break ends it.
    bool isIndefinite() const { return information == noArgument; }
};

/// Reads items one after another. Does not own the data.
class Reader {
public:
    explicit Reader(std::span<const std::uint8_t> data) : data_(data) {}
    /// Begins with the value under `key`.
    Reader(std::span<const std::uint8_t> data, std::size_t offset, std::string_view key)
        : data_(data), offset_(offset), key_(key) {}

    /// Checks the whole archive. The offset of the value under each key.
    std::map<std::string, std::size_t, std::less<>> readArchive();
    Head readHead();
    /// The contents of the string, bytes or text, that begins with `head`.
    std::string readString(const Head& head);

    [[noreturn]] void fail(std::size_t offset, std::string_view reason) const;

private:
    bool readBreak();
    std::string readChunk(const Head& head);
    template <typename ReadEntry>
    void readEntries(const Head& head, ReadEntry readEntry);
    void skipItem(std::size_t depth);

    std::span<const std::uint8_t> data_;
    std::size_t offset_ = 0;
    /// What the value being read stands under, for messages.
    std::optional<std::string_view> key_;
};

void Reader::fail(std::size_t offset, std::string_view reason) const {
    std::string message = "keyed archive, offset " + std::to_string(offset);
    if (key_) message.append(", key \"").append(*key_).append("\"");
    throw std::invalid_argument(message.append(": ").append(reason));
}

std::map<std::string, std::size_t, std::less<>> Reader::readArchive() {
    if (data_.size() > keyedArchiveMaximumSize) {
        fail(keyedArchiveMaximumSize, "the data is longer than an archive may be");
    }
    const Head map = readHead();
    if (map.type != Type::map) fail(map.offset, "the archive is not a map");

    std::map<std::string, std::size_t, std::less<>> offsets;
    readEntries(map, [&] {
        key_.reset();
        const Head keyHead = readHead();
        if (keyHead.type != Type::text) fail(keyHead.offset, "the key is not a text");
        std::string key = readString(keyHead);
        const auto [entry, isNew] = offsets.try_emplace(std::move(key), offset_);
        key_ = entry->first;
        if (!isNew) fail(keyHead.offset, "the key is repeated");
        skipItem(2);
    });
    key_.reset();
    if (offset_ < data_.size()) fail(offset_, "the data goes on after the archive");
    return offsets;
}

Head Reader::readHead() {
    const std::size_t start = offset_;
    if (start == data_.size()) fail(start, "the data ends before the archive does");
    const std::uint8_t initial = data_[offset_++];
    Head head{start, static_cast<Type>(initial >> 5), static_cast<std::uint8_t>(initial & 0x1F), 0};

    if (initial == breakByte) fail(start, "a break has nothing to end");
    const bool mayBeIndefinite = head.type >= Type::bytes && head.type <= Type::map;
    if (head.isIndefinite() && mayBeIndefinite) return head;
    if (head.information > eightByteArgument) fail(start, "the additional information is reserved");

    if (head.information < oneByteArgument) {
        head.argument = head.information;
        return head;
    }
    const std::size_t width = std::size_t{1} << (head.information - oneByteArgument);
    if (width > data_.size() - offset_) fail(start, "the data ends inside an item");
    for (const std::uint8_t byte : data_.subspan(offset_, width)) head.argument = head.argument << 8 | byte;
    offset_ += width;
    return head;
}

/// Reads a break, if one is next.
bool Reader::readBreak() {
    const bool isNext = offset_ < data_.size() && data_[offset_] == breakByte;
    if (isNext) ++offset_;
    return isNext;
}

std::string Reader::readChunk(const Head& head) {
    if (head.argument > data_.size() - offset_) fail(head.offset, "the data ends inside a string");
    const auto bytes = data_.subspan(offset_, static_cast<std::size_t>(head.argument));
    offset_ += bytes.size();
    std::string chunk(bytes.begin(), bytes.end());
    if (head.type == Type::text && !isValidUTF8(chunk)) fail(head.offset, "the text is not UTF-8");
    return chunk;
}

std::string Reader::readString(const Head& head) {
    if (!head.isIndefinite()) return readChunk(head);
    std::string joined;
    while (!readBreak()) {
        const Head chunk = readHead();
        if (chunk.type != head.type || chunk.isIndefinite()) {
            fail(chunk.offset, "the chunk is not a definite-length string of the same type");
        }
        joined += readChunk(chunk);
    }
    return joined;
}

/// Reads the entries of an array or a map. Each takes a byte at least or fails, so the data runs out long
/// before a claimed count that it does not have.
template <typename ReadEntry>
void Reader::readEntries(const Head& head, ReadEntry readEntry) {
    if (head.isIndefinite()) {
        while (!readBreak()) readEntry();
    } else {
        for (std::uint64_t i = 0; i < head.argument; ++i) readEntry();
    }
}

/// Checks an item. `depth` is the level that it would be, were it a map, an array or a tag.
void Reader::skipItem(std::size_t depth) {
    const Head head = readHead();
    const bool isNesting = head.type == Type::array || head.type == Type::map || head.type == Type::tag;
    if (isNesting && depth > keyedArchiveMaximumDepth) fail(head.offset, "the item is nested too deep");

    switch (head.type) {
        case Type::unsignedInteger:
        case Type::negativeInteger:
            break;
        case Type::bytes:
        case Type::text:
            readString(head);
            break;
        case Type::array:
            readEntries(head, [&] { skipItem(depth + 1); });
            break;
        case Type::map:
            readEntries(head, [&] {
                skipItem(depth + 1);
                skipItem(depth + 1);
            });
            break;
        case Type::tag:
            skipItem(depth + 1);
            break;
        case Type::simple:
            if (head.information == oneByteArgument && head.argument < 32) {
                fail(head.offset, "the simple value takes one byte, not two");
            }
            break;
    }
}

}  // namespace

void NSKeyedArchiver::encodeTextForKey(const std::optional<std::string>& text, std::string_view key) {
    if (text && !isValidUTF8(*text)) refuseToWrite(key, "the text is not UTF-8");
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
    if (!isValidUTF8(key)) refuseToWrite(key, "the key is not UTF-8");
    if (!keys_.emplace(key).second) refuseToWrite(key, "the key is repeated");
    appendText(entries_, key);
}

NSKeyedUnarchiver::NSKeyedUnarchiver(std::span<const std::uint8_t> data)
    : offsets_(Reader(data).readArchive()), data_(data.begin(), data.end()) {}

void NSKeyedUnarchiver::encodeTextForKey(const std::optional<std::string>&, std::string_view) {
    throw std::logic_error("keyed archive: an unarchiver does not encode");
}

void NSKeyedUnarchiver::encodeNumberForKey(NSNumber, std::string_view) {
    throw std::logic_error("keyed archive: an unarchiver does not encode");
}

std::optional<std::string> NSKeyedUnarchiver::decodeTextForKey(std::string_view key) const {
    const auto offset = offsetForKey(key);
    if (!offset) return std::nullopt;
    Reader reader(data_, *offset, key);
    const Head head = reader.readHead();
    if (head.type != Type::text) reader.fail(head.offset, "the value is not a text");
    return reader.readString(head);
}

NSNumber NSKeyedUnarchiver::decodeNumberForKey(std::string_view key) const {
    const auto offset = offsetForKey(key);
    if (!offset) return {};
    Reader reader(data_, *offset, key);
    const Head head = reader.readHead();
    const bool isNegative = head.type == Type::negativeInteger;
    if (!isNegative && head.type != Type::unsignedInteger) {
        reader.fail(head.offset, "the value is not an integer");
    }
    // A negative integer's argument is -1 minus its value, so one bound serves both.
    if (head.argument > std::uint64_t{std::numeric_limits<std::int32_t>::max()}) {
        reader.fail(head.offset, "the integer is beyond 32 signed bits");
    }
    const auto value = static_cast<std::int32_t>(head.argument);
    return NSNumber::numberWithInt(isNegative ? -1 - value : value);
}

std::optional<std::size_t> NSKeyedUnarchiver::offsetForKey(std::string_view key) const {
    const auto found = offsets_.find(key);
    if (found == offsets_.end() || data_[found->second] == nullByte) return std::nullopt;
    return found->second;
}

}  // namespace zobi::platform
