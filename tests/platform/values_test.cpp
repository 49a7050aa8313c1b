// Ranges of data, texts, UUIDs, boxed numbers, log lines.

#include <gmock/gmock.h>

#include <limits>
#include <stdexcept>
#include <utility>

#include "platform/UTF8.h"
#include "zobi/platform/CBUUID.h"
#include "zobi/platform/NSData.h"
#include "zobi/platform/NSNumber.h"
#include "zobi/platform/standard/StandardClock.h"
#include "zobi/platform/standard/StandardLog.h"

namespace zobi::platform {
namespace {

CBUUID uuid(std::string_view text) {
    return CBUUID::UUIDWithString(text);
}

TEST(DataRangeErrorTest, IsAboutTheBytesThatWereTooShortByTheirAddress) {
    const std::vector<std::uint8_t> bytes(8);
    const std::span<const std::uint8_t> data = std::span(bytes).first(6);
    const auto isAbout = [&](std::span<const std::uint8_t> read) {
        return DataRangeError(read, 0, 9).isAbout(data);
    };
    EXPECT_TRUE(isAbout(data) && isAbout(data.subspan(2, 3)) && isAbout(data.last(0)));
    EXPECT_FALSE(isAbout(bytes) || isAbout(std::span(bytes).subspan(5)) || isAbout(std::span(bytes).last(1)));
    EXPECT_FALSE(isAbout({}) || isAbout(std::vector(bytes)));
    EXPECT_FALSE(DataRangeError({}, 0, 1).isAbout({})) << "nothing is a part of nothing";
}

TEST(UTF8Test, IsOfTheShortestFormsOfCharactersAlone) {
    for (const char* text : {"", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF",
                             "\xEE\x80\x80", "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_TRUE(isValidUTF8(text)) << text;
    }
    for (const char* text : {"\x80", "\xC1\xBF", "\xC3)", "\xC3\xC3", "\xC3", "\xE0\x9F\xBF", "\xED\xA0\x80",
                             "\xED\xBF\xBF", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF8\x90\x80\x80"}) {
        EXPECT_FALSE(isValidUTF8(text)) << text;
    }
}

TEST(UUIDTest, IsTheSameAcrossFormsAndCaseAndPrintsItsShortestFormAndItsStandardName) {
    // Forms of it, the shortest first, and its name.
    const std::vector<std::pair<std::vector<const char*>, const char*>> uuids{
        {{"180A", "180a", "0000180A", "0000180a-0000-1000-8000-00805F9B34FB"}, "Device Information"},
        {{"180F", "0000180f"}, "Battery Service"},
        {{"FFE0", "0000ffe0-0000-1000-8000-00805f9b34fb"}, ""},
        {{"0001180A"}, ""},
        {{"1000180A", "1000180a-0000-1000-8000-00805F9B34FB"}, ""},
        {{"0000180A-0000-1000-8000-00805F9B34FC"}, ""},
        {{"0000180A-0000-1001-8000-00805F9B34FB"}, ""},
        {{"0000180A-0000-1000-8000-000000000000"}, ""},
        {{"F000FF97-0451-4000-B000-000000000000", "F000ff97-0451-4000-b000-000000000000"}, ""}};
    for (const auto& [forms, name] : uuids) {
        for (const char* const form : forms) {
            EXPECT_EQ(uuid(form).UUIDString(), forms[0]);
            EXPECT_EQ(uuid(form).description(), name);
            for (const auto& other : uuids)
                EXPECT_EQ(uuid(form) == uuid(other.first[0]), other.first == forms);
        }
    }
}

TEST(UUIDTest, RefusesMalformedTextAndQuotesIt) {
    for (const char* text :
         {"", "18", "180", "180AB", "180G", "0x18", "180A180", "0000180A-0000-1000-8000-00805F9B34F",
          "0000180A-0000-1000-8000-00805F9B34FB0", "0000180A00000-1000-8000-00805F9B34FB",
          "0000180A-0000-1000-8000-00805F9B34-B", "-000180A-0000-1000-8000-00805F9B34FB"}) {
        EXPECT_THAT([&] { uuid(text); }, ::testing::ThrowsMessage<std::invalid_argument>(
                                             ::testing::HasSubstr('"' + std::string(text) + '"')));
    }
}

TEST(NumberTest, RemembersItsKindAndMayHoldNothing) {
    EXPECT_EQ(NSNumber().integerValue(), 0);
    EXPECT_EQ(NSNumber().charValue(), 0);
    EXPECT_EQ(NSNumber().description(), "(null)");
    EXPECT_NE(NSNumber(), NSNumber::numberWithInt(0));
    EXPECT_NE(NSNumber::numberWithInt(7), NSNumber::numberWithUnsignedChar(7));
    EXPECT_EQ(NSNumber::numberWithUnsignedShort(0xFFFF).integerValue(), 65535);
    EXPECT_EQ(NSNumber::numberWithUnsignedChar(200).charValue(), -56);
    EXPECT_EQ(NSNumber::numberWithInt(-4).description(), "-4");
}

TEST(LogTest, FormatsByType) {
    std::vector<std::string> lines;
    StandardLog log([&](std::string_view line) { lines.emplace_back(line); });
    log.log("%@, %@, %lu, %d, %f", "text", true, std::size_t{7}, -1, 20.000001);
    log.log("DeltaTime: %f", -std::numeric_limits<double>::max());
    const std::size_t size = std::string("DeltaTime: -.000000").size() + 309;
    EXPECT_THAT(lines, ::testing::ElementsAre("text, YES, 7, -1, 20.000001", ::testing::SizeIs(size)));
}

TEST(LogTest, EachCategoryHasASwitch) {
    using enum Log::Category;
    std::vector<std::string> lines;
    const auto note = [&](std::string_view line) { lines.emplace_back(line); };
    StandardLog log(note);
    const auto logBoth = [&] {
        log.log("diagnostic %d", 1);
        log.message("message %d", 2);
        return std::exchange(lines, {});
    };
    EXPECT_THAT(logBoth(), ::testing::ElementsAre("diagnostic 1", "message 2"));
    log.setDiagnosticSink(nullptr);
    EXPECT_TRUE(log.isEnabled(message) && !log.isEnabled(diagnostic));
    EXPECT_THAT(logBoth(), ::testing::ElementsAre("message 2"));
    log.setSink(note);
    log.setMessageSink(nullptr);
    EXPECT_TRUE(!log.isEnabled(message) && log.isEnabled(diagnostic));
    EXPECT_THAT(logBoth(), ::testing::ElementsAre("diagnostic 1"));
}

TEST(LogTest, ASinkMaySetAnother) {
    std::vector<std::string> lines;
    StandardLog log(nullptr);
    log.setSink([&log, &lines, mark = std::make_shared<std::string>("first")](std::string_view) {
        log.setSink([&lines](std::string_view line) { lines.emplace_back(line); });
        lines.push_back(*mark);
    });
    log.log("one");
    log.log("two");
    EXPECT_THAT(lines, ::testing::ElementsAre("first", "two"));
}

TEST(LogTest, PrintsOneLinePerEntryWhateverTheTextHolds) {
    VirtualTime time;
    time.setTimeIntervalSince1970(4'294'967'296.25);
    StandardLog log(StandardLog::stderrSink(time));
    ::testing::internal::CaptureStderr();
    log.log("%@, reconnecting...", "two\nlines\x7F \xC3\xA9");
    log.setSink(nullptr);
    log.log("off");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "2106-02-07T06:28:16.250Z two\\x0Alines\\x7F \xC3\xA9, reconnecting...\n");
}

}  // namespace
}  // namespace zobi::platform
