#include "zobi/platform/standard/KeyedArchive.h"

#include <gmock/gmock.h>

#include <cstdint>
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

using ::testing::HasSubstr;
using Bytes = std::vector<std::uint8_t>;

auto isRefused(const auto& message) {
    return ::testing::ThrowsMessage<std::invalid_argument>(message);
}

auto reading(const Bytes& data) {
    return [data] { NSKeyedUnarchiver{data}; };
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
    const NSKeyedUnarchiver longerThanItIsWritten(bytesOfHex("B8 01 79 00 01 6E 1B 00 00 00 00 00 00 00 05"));
    EXPECT_EQ(longerThanItIsWritten.decodeNumberForKey("n"), NSNumber::numberWithInt(5));
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
    EXPECT_THAT([&] { unarchiver.decodeNumberForKey("b"); },
                isRefused("keyed archive, offset 3, key \"b\": the value is not an integer"));
    EXPECT_THAT([&] { unarchiver.decodeTextForKey("a"); },
                isRefused("keyed archive, offset 16, key \"a\": the value is not a text"));
    for (std::size_t size = 0; size < data.size(); ++size) {
        EXPECT_THAT(reading({data.data(), data.data() + size}), isRefused(HasSubstr(": the data ends")));
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
    EXPECT_THAT([&] { archiver.encodeTextForKey("y", "a"); },
                isRefused("keyed archive, key \"a\": the key is repeated"));
    EXPECT_THAT([&] { archiver.encodeTextForKey("\xFF", "b"); },
                isRefused("keyed archive, key \"b\": the text is not UTF-8"));
    EXPECT_THROW(archiver.encodeNumberForKey({}, "\xC0\x80"), std::invalid_argument);
    EXPECT_EQ(archiver.encodedData(), before);
    archiver.encodeNumberForKey({}, "");
    EXPECT_THROW(archiver.encodedData(), std::length_error);
    EXPECT_THAT(reading(Bytes(keyedArchiveMaximumSize + 1)),
                isRefused("keyed archive, offset 65536: the data is longer than an archive may be"));
}

TEST(KeyedArchive, RefusesToReadAnythingElse) {
    // Among them are claims of 2^64 - 1 entries and bytes.
    const std::vector<std::pair<std::string, std::vector<std::string>>> archives{
        {"3, key \"a\": the data ends before the archive does", {"A1 61 61"}},
        {"11: the data ends before the archive does", {"BB FF FF FF FF FF FF FF FF 60 00"}},
        {"1: the data ends inside an item", {"A1 7B FF FF FF FF FF FF FF FF 61"}},
        {"3: the data goes on after the archive", {"A1 60 01 00"}},
        {"0: the archive is not a map", {"80", "C1 A0"}},
        {"0: the item is of no definite length", {"BF FF"}},
        {"3: the key is not a text", {"A2 60 01 07 01"}},
        {"1: the text is not UTF-8", {"A1 61 80 01"}},
        {"5, key \"ab\": the key is repeated", {"A2 62 61 62 F6 79 00 02 61 62 F6"}},
        {"3, key \"k\": the data ends inside an item",
         {"A1 61 6B 19 01", "A1 61 6B 7B 80 00 00 00 00 00 00 01 61"}},
        {"3, key \"k\": the text is not UTF-8", {"A1 61 6B 61 C3"}},
        {"3, key \"k\": the integer is beyond 32 signed bits",
         {"A1 61 6B 1A 80 00 00 00", "A1 61 6B 3A 80 00 00 00", "A1 61 6B 1B 00 00 00 01 00 00 00 00",
          "A1 61 6B 3B FF FF FF FF FF FF FF FF"}},
        {"3, key \"k\": the additional information is reserved", {"A1 61 6B 1C"}},
        {"3, key \"k\": a break has nothing to end", {"A1 61 6B FF"}},
        {"3, key \"k\": the item is of no definite length", {"A1 61 6B 7F 61 61 FF"}},
        // Bytes, an array, a map, a tag, false, undefined, null in two bytes, and 1.0.
        {"3, key \"k\": the value is neither a text nor an integer nor null",
         {"A1 61 6B 41 78", "A1 61 6B 80", "A1 61 6B A0", "A1 61 6B C0 60", "A1 61 6B F4", "A1 61 6B F7",
          "A1 61 6B F8 16", "A1 61 6B F9 3C 00"}}};
    for (const auto& [whereAndWhy, refused] : archives) {
        for (const std::string& archive : refused) {
            EXPECT_THAT(reading(bytesOfHex(archive)), isRefused("keyed archive, offset " + whereAndWhy))
                << archive;
        }
    }
}

}  // namespace
}  // namespace zobi::platform
