#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

#include "RunTool.h"

namespace zobi::tool {
namespace {

TEST(ToolDecode, ExplainsTheLayouts) {
    EXPECT_EQ(outputOf({"decode", "56:34:12:ef:cd:ab 00 0001-0007 03 5A 001a 02 FF"}),
              "563412EFCDAB0000010007035A001A02FF: 17 bytes, layout version 3\n"
              "  BYTES  HEX           FIELD               VALUE\n"
              "  0-5    563412EFCDAB  macAddress          ABCDEF123456\n"
              "  6      00                                not used\n"
              "  7-8    0001          major               1\n"
              "  9-10   0007          minor               7\n"
              "  11     03            scanRspVersion      3\n"
              "  12     5A            advertBatteryLevel  90\n"
              "  13-14  001A          temperature         22\n"
              "  15     02            advertAction        2\n"
              "  16     FF                                ignored\n");
    const auto events = eventsOf(outputOf({"decode", "--format", "json", "563412EFCDAB0000010007025AFF",
                                           "563412EFCDAB0000010007", "563412EFCDAB0000010007F95A"}));
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[0]["payload"], "563412EFCDAB0000010007025AFF");
    EXPECT_EQ(events[0]["advertAction"], -1);
    EXPECT_EQ(events[0]["temperature"], nullptr);
    EXPECT_EQ(events[1]["scanRspVersion"], 1);
    EXPECT_EQ(events[1]["advertBatteryLevel"], 0);
    EXPECT_EQ(events[2]["scanRspVersion"], -7);
    EXPECT_EQ(events[2]["advertAction"], nullptr);
}

TEST(ToolDecode, GivesOneLineForEachPayloadItRefuses) {
    const std::string common = "563412EFCDAB0000010007";
    const std::vector<std::pair<std::string, std::string>> refused{
        {"", "\"\": 0 bytes decode under no layout: the shortest, layout version 1, needs 11"},
        {"5634", "5634: 2 bytes decode under no layout: the shortest, layout version 1, needs 11"},
        {common + "03", common + "03: 12 bytes decode under no layout: layout version 3 needs 16"},
        {common + "025A", common + "025A: 13 bytes decode under no layout: layout version 2 needs 14"},
        {common + "FF", common + "FF: 12 bytes decode under no layout: layout version -1 needs 13"},
        {"56x4", "56x4: character 3 is not a hexadecimal digit"},
        {"5:6", "5:6: character 2 separates the two digits of a byte"},
        {"563", "563: odd number of hexadecimal digits"},
        // No terminal takes orders from an argument.
        {"\x1b[2J\u009b2J", R"(\x1B[2J\xC2\x9B2J: character 1 is not a hexadecimal digit)"},
    };
    for (const auto& [payload, message] : refused) {
        EXPECT_EQ(outputOf({"decode", payload}, 1), "zobiconnect: " + message + '\n');
    }
    const std::string output = outputOf({"decode", "--format", "json", "5634", common}, 1);
    EXPECT_NE(output.find("\"minor\":7"), std::string::npos) << output;
}

}  // namespace
}  // namespace zobi::tool
