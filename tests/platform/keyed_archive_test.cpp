#include "zobi/platform/standard/KeyedArchive.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace zobi::platform {
namespace {

using nlohmann::json;
using Bytes = std::vector<std::uint8_t>;

constexpr std::int32_t smallest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t largest = std::numeric_limits<std::int32_t>::max();

Bytes fromHex(const std::string& text) {
    std::istringstream stream(text);
    Bytes bytes;
    for (unsigned byte = 0; stream >> std::hex >> byte;) bytes.push_back(static_cast<std::uint8_t>(byte));
    return bytes;
}

/// The message that `action` is refused with; empty when it is not refused.
template <typename Action>
std::string refusal(Action action) {
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

TEST(KeyedArchive, WritesTheShortestFormInTheOrderWritten) {
    NSKeyedArchiver archiver;
    EXPECT_EQ(archiver.encodedData(), fromHex("A0"));
    archiver.encodeTextForKey("\u00E9", "b");
    archiver.encodeNumberForKey(NSNumber::numberWithUnsignedChar(23), "a");
    archiver.encodeNumberForKey(NSNumber::numberWithInt(-500), "c");
    archiver.encodeTextForKey(std::nullopt, "d");
    archiver.encodeNumberForKey({}, "");
    EXPECT_EQ(archiver.encodedData(), fromHex("A5 61 62 62 C3 A9 61 61 17 61 63 39 01 F3 61 64 F6 60 F6"));
}

TEST(KeyedArchive, ReadsWhatItWrote) {
    for (const std::int32_t value : {0, 23, 24, 255, 256, 65535, 65536, largest, -1, -24, -25, smallest}) {
        NSKeyedArchiver archiver;
        archiver.encodeNumberForKey(NSNumber::numberWithInt(value), "n");
        EXPECT_EQ(NSKeyedUnarchiver(archiver.encodedData()).decodeNumberForKey("n").integerValue(), value);
    }
    const std::string text("zero \0 and \U0010FFFF", 15);
    NSKeyedArchiver archiver;
    archiver.encodeTextForKey(text, "text");
    archiver.encodeTextForKey("", "empty");
    archiver.encodeTextForKey(std::nullopt, "absent");
    archiver.encodeNumberForKey(NSNumber::numberWithUnsignedShort(65535), "number");
    // The bytes are gone when the values are asked for.
    const NSKeyedUnarchiver unarchiver(archiver.encodedData());
    EXPECT_EQ(unarchiver.decodeTextForKey("text"), text);
    EXPECT_EQ(unarchiver.decodeTextForKey("empty"), "");
    EXPECT_EQ(unarchiver.decodeNumberForKey("number"), NSNumber::numberWithInt(65535));
    for (const char* key : {"absent", "missing"}) {
        EXPECT_EQ(unarchiver.decodeTextForKey(key), std::nullopt);
        EXPECT_EQ(unarchiver.decodeNumberForKey(key), NSNumber());
    }
}

TEST(KeyedArchive, RefusesToWriteWhatItCouldNotRead) {
    NSKeyedArchiver archiver;
    archiver.encodeTextForKey("x", "a");
    const Bytes before = archiver.encodedData();
    EXPECT_EQ(refusal([&] { archiver.encodeTextForKey("y", "a"); }),
              "keyed archive, key \"a\": the key is repeated");
    EXPECT_EQ(refusal([&] { archiver.encodeTextForKey("\xFF", "b"); }),
              "keyed archive, key \"b\": the text is not UTF-8");
    EXPECT_THROW(archiver.encodeNumberForKey({}, "\xC0\x80"), std::invalid_argument);
    EXPECT_EQ(archiver.encodedData(), before);
}

TEST(KeyedArchive, DoesOneOfReadingAndWriting) {
    NSKeyedArchiver archiver;
    EXPECT_THROW(archiver.decodeTextForKey("a"), std::logic_error);
    EXPECT_THROW(archiver.decodeNumberForKey("a"), std::logic_error);
    NSKeyedUnarchiver unarchiver(archiver.encodedData());
    EXPECT_THROW(unarchiver.encodeTextForKey("x", "a"), std::logic_error);
    EXPECT_THROW(unarchiver.encodeNumberForKey({}, "a"), std::logic_error);
}

TEST(KeyedArchive, ExchangesArchivesWithAnotherImplementation) {
    NSKeyedArchiver archiver;
    const std::string longText(300, 'x');
    archiver.encodeTextForKey(longText, "text");
    archiver.encodeNumberForKey(NSNumber::numberWithInt(smallest), "number");
    archiver.encodeNumberForKey({}, "absent");
    EXPECT_EQ(json::from_cbor(archiver.encodedData()),
              json({{"text", longText}, {"number", smallest}, {"absent", nullptr}}));

    const json other = {{"text", "J\u00FCrgen"},
                        {"number", -70000},
                        {"a", {1, -2, {{"deep", {nullptr, true, 1.5}}}}},
                        {"o", {{"text", "another"}, {"big", std::numeric_limits<std::uint64_t>::max()}}},
                        {"z", json::binary({0xFF, 0x00}, 7)}};
    const NSKeyedUnarchiver unarchiver(json::to_cbor(other));
    EXPECT_EQ(unarchiver.decodeTextForKey("text"), "J\u00FCrgen");
    EXPECT_EQ(unarchiver.decodeNumberForKey("number").integerValue(), -70000);
}

TEST(KeyedArchive, ReadsEveryEncodingAndRefusesEveryTruncation) {
    // An indefinite map; under "u" an item of every kind, "te" + "xt" in chunks as key and "a" + "b" as
    // value, and 1 in nine bytes under "n".
    const Bytes data = fromHex(
        "BF 61 75 8D 01 3B FF FF FF FF FF FF FF FF 42 FF FE 5F 41 FF 40 FF 7F 61 61 FF 9F 80 FF BF 01 A1 80 "
        "02 FF C2 41 01 F9 7E 00 FA 00 00 00 00 FB 00 00 00 00 00 00 00 00 F8 FF F7 "
        "7F 62 74 65 62 78 74 FF 7F 61 61 60 61 62 FF 61 6E 1B 00 00 00 00 00 00 00 01 FF");
    const NSKeyedUnarchiver unarchiver(data);
    EXPECT_EQ(unarchiver.decodeTextForKey("text"), "ab");
    EXPECT_EQ(unarchiver.decodeNumberForKey("n").integerValue(), 1);
    for (std::size_t size = 0; size < data.size(); ++size) {
        const std::string message = refusalOf({data.data(), data.data() + size});
        EXPECT_NE(message.find(": the data ends"), std::string::npos) << size;
    }
}

TEST(KeyedArchive, RefusesIllFormedData) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "0: the data ends before the archive does"},
        {"A1 61 61", "3, key \"a\": the data ends before the archive does"},
        {"A1 60 19 01", "2, key \"\": the data ends inside an item"},
        {"A1 60 01 00", "3: the data goes on after the archive"},
        {"80", "0: the archive is not a map"},
        {"C1 A0", "0: the archive is not a map"},
        {"A2 60 01 07 01", "3: the key is not a text"},
        {"A2 62 61 62 F6 7F 61 61 61 62 FF F6", "5, key \"ab\": the key is repeated"},
        {"FF", "0: a break has nothing to end"},
        {"BF 60 FF", "2, key \"\": a break has nothing to end"},
        {"A1 60 BF 01 FF", "4, key \"\": a break has nothing to end"},
        {"A1 60 82 01 FF", "4, key \"\": a break has nothing to end"},
        {"A1 60 1C", "2, key \"\": the additional information is reserved"},
        {"A1 60 81 FE", "3, key \"\": the additional information is reserved"},
        {"A1 60 3F", "2, key \"\": the additional information is reserved"},
        {"A1 60 DF 00", "2, key \"\": the additional information is reserved"},
        {"A1 60 F8 1F", "2, key \"\": the simple value takes one byte, not two"},
        {"A1 60 7F 41 61 FF", "3, key \"\": the chunk is not a definite-length string of the same type"},
        {"A1 60 5F 5F FF FF", "3, key \"\": the chunk is not a definite-length string of the same type"},
        {"A1 61 80 01", "1: the text is not UTF-8"},
        {"A1 60 A1 00 61 C3", "4, key \"\": the text is not UTF-8"},
        {"A1 60 7F 61 C3 61 A9 FF", "3, key \"\": the text is not UTF-8"},
        // Claims of 2^63 bytes, elements and entries, and more.
        {"BB FF FF FF FF FF FF FF FF 60 00", "11: the data ends before the archive does"},
        {"A1 60 9B 80 00 00 00 00 00 00 00 01", "12, key \"\": the data ends before the archive does"},
        {"A1 60 BB 80 00 00 00 00 00 00 00 01", "12, key \"\": the data ends before the archive does"},
        {"A1 7B FF FF FF FF FF FF FF FF 61", "1: the data ends inside a string"},
        {"A1 60 5B FF FF FF FF FF FF FF F8 61", "2, key \"\": the data ends inside a string"},
    };
    for (const auto& [data, whereAndWhy] : cases) {
        EXPECT_EQ(refusalOf(fromHex(data)), "keyed archive, offset " + whereAndWhy) << data;
    }
}

TEST(KeyedArchive, TakesTextsOfUTF8Alone) {
    for (const std::string text : {"\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF",
                                   "\xEE\x80\x80", "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
        NSKeyedArchiver archiver;
        archiver.encodeTextForKey(text, "t");
        EXPECT_EQ(NSKeyedUnarchiver(archiver.encodedData()).decodeTextForKey("t"), text);
    }
    for (const std::string text :
         {"\x80", "\xC1\xBF", "\xC3)", "\xC3\xC3", "\xC3", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xED\xBF\xBF",
          "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF8\x90\x80\x80"}) {
        NSKeyedArchiver archiver;
        EXPECT_THROW(archiver.encodeTextForKey(text, "t"), std::invalid_argument);
        EXPECT_EQ(refusalOf(json::to_cbor({{"t", text}})),
                  "keyed archive, offset 3, key \"t\": the text is not UTF-8");
    }
}

TEST(KeyedArchive, RefusesValuesOfAnotherTypeWhenAskedForThem) {
    const std::string where = "keyed archive, offset 3, key \"k\": ";
    const std::string notText = where + "the value is not a text";
    const std::string notInteger = where + "the value is not an integer";
    const std::string tooLarge = where + "the integer is beyond 32 signed bits";
    // A value and its refusals as a text and as a number, empty where there is none.
    const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
        {"61 78", "", notInteger},      {"00", notText, ""},
        {"41 78", notText, notInteger}, {"1A 7F FF FF FF", notText, ""},
        {"F7", notText, notInteger},    {"1A 80 00 00 00", notText, tooLarge},
        {"F4", notText, notInteger},    {"3A 7F FF FF FF", notText, ""},
        {"80", notText, notInteger},    {"3A 80 00 00 00", notText, tooLarge},
        {"A0", notText, notInteger},    {"1B 00 00 00 01 00 00 00 00", notText, tooLarge},
        {"C0 60", notText, notInteger}, {"3B FF FF FF FF FF FF FF FF", notText, tooLarge},
        {"C2 40", notText, notInteger}, {"F9 3C 00", notText, notInteger},
    };
    for (const auto& [value, textRefusal, numberRefusal] : cases) {
        const NSKeyedUnarchiver unarchiver(fromHex("A1 61 6B " + value));
        EXPECT_EQ(refusal([&] { unarchiver.decodeTextForKey("k"); }), textRefusal) << value;
        EXPECT_EQ(refusal([&] { unarchiver.decodeNumberForKey("k"); }), numberRefusal) << value;
    }
}

TEST(KeyedArchive, HoldsTheLimitOfSize) {
    // One byte for the map, two for the key, three for the head of the text.
    const std::string text(keyedArchiveMaximumSize - 6, 'x');
    NSKeyedArchiver archiver;
    archiver.encodeTextForKey(text, "t");
    const Bytes data = archiver.encodedData();
    EXPECT_EQ(data.size(), keyedArchiveMaximumSize);
    EXPECT_EQ(NSKeyedUnarchiver(data).decodeTextForKey("t"), text);

    NSKeyedArchiver tooLong;
    tooLong.encodeTextForKey(text + 'x', "t");
    EXPECT_THROW(tooLong.encodedData(), std::length_error);
    EXPECT_EQ(refusalOf(json::to_cbor({{"t", text + 'x'}})),
              "keyed archive, offset 65536: the data is longer than an archive may be");
}

TEST(KeyedArchive, HoldsTheLimitOfDepth) {
    const auto nested = [](std::size_t levels, const std::string& opening, const std::string& closing) {
        std::string data = "A1 61 6B ";
        for (std::size_t i = 1; i < levels; ++i) data += opening;
        data += "00 ";
        for (std::size_t i = 1; i < levels; ++i) data += closing;
        return fromHex(data);
    };
    const std::vector<std::pair<std::string, std::string>> nestings = {
        {"81 ", ""}, {"9F ", "FF "}, {"A1 00 ", ""}, {"A1 ", "00 "}, {"BF 00 ", "FF "}, {"C1 ", ""}};
    for (const auto& [opening, closing] : nestings) {
        const std::size_t offset = 3 + opening.size() / 3 * (keyedArchiveMaximumDepth - 1);
        const std::string message =
            "keyed archive, offset " + std::to_string(offset) + ", key \"k\": the item is nested too deep";
        EXPECT_EQ(refusalOf(nested(keyedArchiveMaximumDepth, opening, closing)), "");
        EXPECT_EQ(refusalOf(nested(keyedArchiveMaximumDepth + 1, opening, closing)), message);
        EXPECT_EQ(refusalOf(nested(1000, opening, closing)), message);
    }
}

}  // namespace
}  // namespace zobi::platform
