#include <algorithm>
#include <cstddef>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/zobiconnect/Command.h"
#include "tools/zobiconnect/decode/QuietDecoder.h"
#include "tools/zobiconnect/terminal/Console.h"
#include "tools/zobiconnect/terminal/TextTable.h"
#include "tools/zobiconnect/text/BeaconJson.h"
#include "tools/zobiconnect/text/Hex.h"
#include "zobi/platform/NSData.h"

namespace zobi::tool {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t shortLayoutSize = 11;
constexpr std::size_t versionOffset = 11;

struct Options {
    std::vector<std::string> payloads;
    std::string format = "table";
};

std::size_t layoutSize(int version) {
    return version == 3 ? 16 : version == 2 ? 14 : 13;
}

/// Why the library found the payload too short.
std::string tooShortReason(const Bytes& payload) {
    const std::string length =
        std::to_string(payload.size()) + (payload.size() == 1 ? " byte decodes" : " bytes decode");
    if (payload.size() < shortLayoutSize) {
        return length + " under no layout: the shortest, layout version 1, needs 11";
    }
    const auto version = static_cast<std::int8_t>(payload[versionOffset]);
    return length + " under no layout: layout version " + std::to_string(version) + " needs " +
           std::to_string(layoutSize(version));
}

/// Where each value stands in the payload, which the library has found long enough.
std::vector<std::string> explain(const Bytes& payload, const ZOKBeacon& beacon) {
    std::vector<std::vector<std::string>> rows;
    std::size_t offset = 0;
    const auto add = [&](std::size_t size, const std::string& name, const std::string& value) {
        const auto bytes = std::span(payload).subspan(offset, size);
        const std::size_t last = offset + size - 1;
        const std::string place = size == 0   ? "-"
                                  : size == 1 ? std::to_string(offset)
                                              : std::to_string(offset) + '-' + std::to_string(last);
        rows.push_back({place, size == 0 ? "-" : hexText(bytes), name, value});
        offset += size;
    };
    const bool isShort = payload.size() <= versionOffset;
    const int version = beacon.scanRspVersion().integerValue();
    const auto sizeUnlessShort = [isShort](std::size_t size) { return isShort ? 0 : size; };
    add(6, "macAddress", beacon.macAddress().value_or(""));
    add(1, "", "not used");
    add(2, "major", beacon.major().description());
    add(2, "minor", beacon.minor().description());
    add(sizeUnlessShort(1), "scanRspVersion", beacon.scanRspVersion().description());
    add(sizeUnlessShort(1), "advertBatteryLevel", beacon.advertBatteryLevel().description());
    if (version == 3 && !isShort) add(2, "temperature", beacon.temperature().description());
    if (beacon.advertAction().hasValue()) {
        add(sizeUnlessShort(1), "advertAction", beacon.advertAction().description());
    }
    if (offset < payload.size()) add(payload.size() - offset, "", "ignored");
    return formatTable({{"", "BYTES"}, {"", "HEX"}, {"", "FIELD"}, {"", "VALUE"}}, rows);
}

void printAsTable(const Bytes& payload, const ZOKBeacon& beacon) {
    printOut(hexText(payload) + ": " + std::to_string(payload.size()) + " bytes, layout version " +
             beacon.scanRspVersion().description() + '\n');
    for (const std::string& line : explain(payload, beacon)) printOut("  " + line + '\n');
}

void printAsJson(const Bytes& payload, const ZOKBeacon& beacon) {
    OrderedJson object{{"payload", hexText(payload)}};
    object.update(beaconJson(beacon));
    // What no payload tells.
    object.erase("firmwareVersion");
    object.erase("timestamp");
    printOut(jsonLine(object));
}

/// The argument as it is named in a message.
std::string shortened(const std::string& text) {
    constexpr std::size_t longest = 40;
    if (text.empty()) return "\"\"";
    if (text.size() <= longest) return text;
    std::size_t end = longest;
    // Not in the middle of a character.
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    return text.substr(0, end) + "...";
}

int runDecode(const Options& options) {
    QuietDecoder decoder;
    int status = success;
    bool isFirst = true;
    for (const std::string& text : options.payloads) {
        const auto refuse = [&](const std::string& reason) {
            status = failure;
            complain(shortened(text) + ": " + reason);
        };
        Bytes payload;
        try {
            payload = bytesFromHex(text);
            const auto beacon = decoder.decode(payload);
            if (options.format == "json") {
                printAsJson(payload, *beacon);
            } else {
                if (!isFirst) printOut("\n");
                printAsTable(payload, *beacon);
            }
            isFirst = false;
        } catch (const std::invalid_argument& error) {
            refuse(error.what());
        } catch (const platform::DataRangeError&) {
            refuse(tooShortReason(payload));
        }
    }
    flushOut();
    return status;
}

}  // namespace

Command addDecodeCommand(CLI::App& tool) {
    const auto options = std::make_shared<Options>();
    CLI::App* const app = tool.add_subcommand("decode", "Explain advertised payloads");
    app->group("Commands");
    app->add_option("HEX", options->payloads,
                    "What a beacon advertises under Device Information (180A), in hexadecimal digits\n"
                    "of any case; ':', '-' or ' ' may stand between bytes")
        ->required()
        ->option_text("...");
    app->add_option("--format", options->format, "'table', or 'json': one object a line for each payload")
        ->check(CLI::IsMember({"table", "json"}))
        ->option_text("FORMAT [table]");
    app->footer(
        "A payload that is not hexadecimal, or too short for its layout, costs one line on stderr.\n"
        "The others are decoded all the same, and the exit status is 1.\n"
        "\n"
        "Example: zobiconnect decode 56:34:12:EF:CD:AB-00-0001-0007-03-5A-001A-00");
    return {app, [options] { return runDecode(*options); }};
}

}  // namespace zobi::tool
