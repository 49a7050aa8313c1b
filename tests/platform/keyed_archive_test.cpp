#include "zobi/platform/standard/KeyedArchive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "BytesOfHex.h"

namespace zobi::platform {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// The message that `action` is refused with; empty when it is not refused.
std::string refusal(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "";
}

std::string refusalOf(const Bytes& data) {
    return refusal([&] { NSKeyedUnarchiver{data}; });
}

TEST(KeyedArchive, EachNumberHasItsBytes) {
    constexpr std::int32_t largest = std::numeric_limits<std::int32_t>::max();
    const std::map<std::int32_t, std::string> numbers{{-1 - largest, "3A 7F FF FF FF"},
                                                      {-1, "20"},
                                                      {23, "17"},
                                                      {24, "18 18"},
                                                      {255, "18 FF"},
                                                      {256, "19 01 00"},
                                                      {65535, "19 FF FF"},
                                                      {65536, "1A 00 01 00 00"},
                                                      {largest, "1A 7F FF FF FF"}};
    for (const auto& [number, bytes] : numbers) {
        NSKeyedArchiver archiver;
        archiver.encodeNumberForKey(NSNumber::numberWithInt(number), "n");
        const Bytes archive = bytesOfHex("A1 61 6E " + bytes);
        EXPECT_EQ(archiver.encodedData(), archive);
        EXPECT_EQ(NSKeyedUnarchiver(archive).decodeNumberForKey("n"), NSNumber::numberWithInt(number));
    }
    EXPECT_EQ(
        NSKeyedUnarchiver(bytesOfHex("B8 01 79 00 01 6E 1B 00 00 00 00 00 00 00 05")).decodeNumberForKey("n"),
        NSNumber::numberWithInt(5))
        << "in a longer form than it is written in";
}

TEST(KeyedArchive, HoldsTextsNumbersAndNullsInTheOrderInWhichTheyAreWritten) {
    const std::string text("zero \0, \u00E9", 10);
    NSKeyedArchiver archiver;
    EXPECT_EQ(archiver.encodedData(), bytesOfHex("A0"));
    archiver.encodeTextForKey(text, "b");
    archiver.encodeNumberForKey(NSNumber::numberWithUnsignedChar(23), "a");
    archiver.encodeTextForKey(std::nullopt, "no text");
    archiver.encodeNumberForKey({}, "");
    archiver.encodeTextForKey("", "e");
    const Bytes data = archiver.encodedData();
    EXPECT_EQ(data,
              bytesOfHex("A5 61 62 6A 7A 65 72 6F 20 00 2C 20 C3 A9 61 61 17 67 6E 6F 20 74 65 78 74 F6 "
                         "60 F6 61 65 60"));
    // The bytes are gone when the values are asked for.
    const NSKeyedUnarchiver unarchiver(archiver.encodedData());
    EXPECT_EQ(unarchiver.decodeTextForKey("b"), text);
    EXPECT_EQ(unarchiver.decodeTextForKey("e"), "");
    EXPECT_EQ(unarchiver.decodeNumberForKey("a"), NSNumber::numberWithInt(23));
    for (const char* key : {"no text", "", "missing"}) {
        EXPECT_EQ(unarchiver.decodeTextForKey(key), std::nullopt);
        EXPECT_EQ(unarchiver.decodeNumberForKey(key), NSNumber());
    }
    EXPECT_EQ(refusal([&] { unarchiver.decodeNumberForKey("b"); }),
              "keyed archive, offset 3, key \"b\": the value is not an integer");
    EXPECT_EQ(refusal([&] { unarchiver.decodeTextForKey("a"); }),
              "keyed archive, offset 16, key \"a\": the value is not a text");
    for (std::size_t size = 0; size < data.size(); ++size) {
        EXPECT_THAT(refusalOf({data.data(), data.data() + size}), ::testing::HasSubstr(": the data ends"));
    }
}

TEST(KeyedArchive, DoesOneOfReadingAndWriting) {
    NSKeyedArchiver archiver;
    EXPECT_THROW(archiver.decodeTextForKey("a"), std::logic_error);
    EXPECT_THROW(archiver.decodeNumberForKey("a"), std::logic_error);
    NSKeyedUnarchiver unarchiver(archiver.encodedData());
    EXPECT_THROW(unarchiver.encodeTextForKey("x", "a"), std::logic_error);
    EXPECT_THROW(unarchiver.encodeNumberForKey({}, "a"), std::logic_error);
}

TEST(KeyedArchive, RefusesToWriteWhatItCouldNotRead) {
    NSKeyedArchiver archiver;
    // One byte for the map, two for the key, three for the head of the text.
    const std::string longest(keyedArchiveMaximumSize - 6, 'x');
    archiver.encodeTextForKey(longest, "a");
    const Bytes before = archiver.encodedData();
    EXPECT_EQ(NSKeyedUnarchiver(before).decodeTextForKey("a"), longest);
    EXPECT_EQ(refusal([&] { archiver.encodeTextForKey("y", "a"); }),
              "keyed archive, key \"a\": the key is repeated");
    EXPECT_EQ(refusal([&] { archiver.encodeTextForKey("\xFF", "b"); }),
              "keyed archive, key \"b\": the text is not UTF-8");
    EXPECT_THROW(archiver.encodeNumberForKey({}, "\xC0\x80"), std::invalid_argument);
    EXPECT_EQ(archiver.encodedData(), before);
    archiver.encodeNumberForKey({}, "");
    EXPECT_THROW(archiver.encodedData(), std::length_error);
    EXPECT_EQ(refusalOf(Bytes(keyedArchiveMaximumSize + 1)),
              "keyed archive, offset 65536: the data is longer than an archive may be");
}

TEST(KeyedArchive, RefusesToReadAnythingElse) {
    const std::vector<std::pair<std::string, std::string>> archives{
        {"A1 61 61", "3, key \"a\": the data ends before the archive does"},
        {"A1 60 01 00", "3: the data goes on after the archive"},
        {"80", "0: the archive is not a map"},
        {"C1 A0", "0: the archive is not a map"},
        {"BF FF", "0: the item is of no definite length"},
        {"A2 60 01 07 01", "3: the key is not a text"},
        {"A1 61 80 01", "1: the text is not UTF-8"},
        {"A2 62 61 62 F6 79 00 02 61 62 F6", "5, key \"ab\": the key is repeated"},
        // Claims of 2^64 - 1 entries and bytes.
        {"BB FF FF FF FF FF FF FF FF 60 00", "11: the data ends before the archive does"},
        {"A1 7B FF FF FF FF FF FF FF FF 61", "1: the data ends inside an item"}};
    for (const auto& [data, whereAndWhy] : archives) {
        EXPECT_EQ(refusalOf(bytesOfHex(data)), "keyed archive, offset " + whereAndWhy) << data;
    }
    const std::vector<std::pair<std::string, std::vector<std::string>>> values{
        {"the data ends inside an item", {"19 01", "7B 80 00 00 00 00 00 00 01 61"}},
        {"the text is not UTF-8", {"61 C3"}},
        {"the integer is beyond 32 signed bits",
         {"1A 80 00 00 00", "3A 80 00 00 00", "1B 00 00 00 01 00 00 00 00", "3B FF FF FF FF FF FF FF FF"}},
        {"the additional information is reserved", {"1C"}},
        {"a break has nothing to end", {"FF"}},
        {"the item is of no definite length", {"7F 61 61 FF"}},
        // Bytes, an array, a map, a tag, false, undefined, null in two bytes, and 1.0.
        {"the value is neither a text nor an integer nor null",
         {"41 78", "80", "A0", "C0 60", "F4", "F7", "F8 16", "F9 3C 00"}}};
    for (const auto& [why, refused] : values) {
        for (const std::string& value : refused) {
            EXPECT_EQ(refusalOf(bytesOfHex("A1 61 6B " + value)),
                      "keyed archive, offset 3, key \"k\": " + why)
                << value;
        }
    }
}

}  // namespace
}  // namespace zobi::platform
