#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tools/zobiconnect/Command.h"
#include "tools/zobiconnect/CommandLine.h"
#include "tools/zobiconnect/QuietDecoder.h"
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
std::vector<std::string> fieldTable(const Bytes& payload, const ZOKBeacon& beacon) {
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
    for (const std::string& line : fieldTable(payload, beacon)) printOut("  " + line + '\n');
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

/// Prints what payloads mean, one after the other.
class Explainer {
public:
    explicit Explainer(bool asJson) : asJson_(asJson) {}

    /// Whether a payload was refused.
    bool hasRefused() const { return hasRefused_; }

    void explain(const std::string& text) {
        Bytes payload;
        try {
            payload = bytesFromHex(text);
            print(payload, *decoder_.decode(payload));
        } catch (const std::invalid_argument& error) {
            refuse(text, error.what());
        } catch (const platform::DataRangeError&) {
            refuse(text, tooShortReason(payload));
        }
    }

    void refuse(const std::string& text, const std::string& reason) {
        hasRefused_ = true;
        complain(shortened(text) + ": " + reason);
    }

private:
    void print(const Bytes& payload, const ZOKBeacon& beacon) {
        if (asJson_) return printAsJson(payload, beacon);
        if (!std::exchange(isFirst_, false)) printOut("\n");
        printAsTable(payload, beacon);
    }

    QuietDecoder decoder_;
    bool asJson_;
    bool isFirst_ = true;
    bool hasRefused_ = false;
};

std::string withoutSpaceAround(const std::string& line) {
    constexpr const char* spaces = " \t\r";
    const std::size_t first = line.find_first_not_of(spaces);
    return first == std::string::npos ? "" : line.substr(first, line.find_last_not_of(spaces) + 1 - first);
}

void explainLine(Explainer& explainer, const std::string& line) {
    // Far longer than any payload.
    constexpr std::size_t longest = 4096;
    if (line.size() > longest) return explainer.refuse(line, "the line is longer than any payload");
    if (!line.empty()) explainer.explain(line);
}

/// Each line of stdin that is not blank, as soon as it is there.
void explainInput(Explainer& explainer) {
    // What has no end of line for so long is no text.
    constexpr std::size_t longestLine = 1024 * 1024;
    std::string line;
    for (int c = 0; c != EOF;) {
        c = std::getchar();
        if (c != '\n' && c != EOF) {
            line += static_cast<char>(c);
            if (line.size() <= longestLine) continue;
            return explainer.refuse("stdin", "a line of more than 1 MiB: the rest is not read");
        }
        explainLine(explainer, withoutSpaceAround(line));
        flushOut();
        line.clear();
    }
    if (std::ferror(stdin)) explainer.refuse("stdin", "cannot be read: " + std::string(std::strerror(errno)));
}

int runDecode(const Options& options) {
    Explainer explainer(options.format == "json");
    for (const std::string& text : options.payloads) {
        if (text == "-") {
            explainInput(explainer);
        } else {
            explainer.explain(text);
        }
    }
    flushOut();
    return explainer.hasRefused() ? failure : success;
}

}  // namespace

Command addDecodeCommand(CLI::App& tool) {
    const auto options = std::make_shared<Options>();
    CLI::App* const app = tool.add_subcommand("decode", "Explain advertised payloads");
    app->group("Commands");
    app->add_option("HEX", options->payloads,
                    "What a beacon advertises under Device Information (180A), in hexadecimal digits\n"
                    "of any case; ':', '-' or ' ' may stand between bytes. A '-' alone stands for\n"
                    "the lines of stdin")
        ->required()
        ->option_text("...");
    addFormatOption(*app, options->format, "table");
    app->footer(
        "A payload that is not hexadecimal, or too short for its layout, costs one line on stderr.\n"
        "The others are decoded all the same, and the exit status is 1.\n"
        "\n"
        "Examples:\n"
        "  zobiconnect decode 56:34:12:EF:CD:AB-00-0001-0007-03-5A-001A-00\n"
        "  zobiconnect decode --format json - < payloads.txt");
    return {app, [options] { return runDecode(*options); }};
}

}  // namespace zobi::tool
