// Writes what the fuzzers start from: write_seeds DIRECTORY makes DIRECTORY/<fuzzer>/<seed>.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ZobiConnectKit/ZOKBeacon.h"
#include "tests/support/payload_table.h"
#include "zobi/platform/standard/KeyedArchive.h"

namespace {

void writeSeed(const std::filesystem::path& path, const std::vector<std::uint8_t>& bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    for (const std::uint8_t byte : bytes) file.put(static_cast<char>(byte));
}

using Bytes = std::vector<std::uint8_t>;

Bytes joined(const std::vector<Bytes>& parts) {
    Bytes all;
    for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

/// Signals of a device, as `fuzz_bus_message` takes them.
Bytes lifeOfDevice() {
    return joined({{0},
                   // It appears, with three properties: name, services, and service data.
                   {0, 1, 0, 0, 0, 1, 0, 3},
                   {2, 4},
                   {3, 1, 6},
                   {1, 1, 15, 5, 0, 4, 1, 2, 3, 4},
                   // It is heard again, with signal strength and service data.
                   {0, 0, 0, 0, 0, 2, 0, 0xC4, 0xFF, 1, 1, 15, 5, 0, 1, 9},
                   // A characteristic has a value.
                   {5, 0, 0, 2, 0, 1, 6, 2, 1, 2},
                   // Why the link ends.
                   {0, 3, 0, 10, 0, 4},
                   // It vanishes.
                   {0, 2, 0, 0, 0, 1, 0}});
}

/// The service lists an adapter and a device of it that is connected, and then the device's table.
Bytes lists() {
    return joined({{0},
                   {0, 5, 0, 2},
                   {2, 1, 1, 1, 9, 1, 0},
                   {0, 1, 0, 2, 2, 4, 4, 1, 0},
                   {0, 6, 0, 2},
                   {6, 1, 12, 1, 12, 5},
                   {5, 1, 2, 1, 12, 6}});
}

/// A central reads a value from its second byte on, writes two others, and subscribes. The write comes with a
/// dictionary that nobody expects.
Bytes calls() {
    return joined({{6}, {0, 0, 2, 13, 0, 14, 1, 0}, {1, 0, 2, 8, 9, 0, 1, 15, 4, 13, 1, 12, 5}, {2}});
}

/// The end of a link, as the controller tells it and as the kernel does.
Bytes linkEnds() {
    return joined({{7},
                   {7, 0x04, 0x05, 4, 0, 0x40, 0, 0x08},
                   {14, 0x0C, 0, 0, 0, 8, 0},
                   {1, 0x53, 0, 0x5E, 0, 0, 1, 1}});
}

}  // namespace

int main(int argumentCount, char** arguments) {
    if (argumentCount != 2) return 2;
    const std::filesystem::path directory(arguments[1]);
    int number = 0;
    for (const PayloadCase& payload : payloadCases()) {
        writeSeed(directory / "fuzz_payload" / std::to_string(++number), payload.payload);
        // The first beacon appears with it, and sends it again.
        const Bytes size{1, static_cast<std::uint8_t>(payload.payload.size())};
        const Bytes sighting = joined({size, payload.payload, {0, 68}});
        writeSeed(directory / "fuzz_advertisement_intake" / std::to_string(number),
                  joined({{100}, sighting, {0}, sighting}));
    }
    writeSeed(directory / "fuzz_bus_message" / "device", lifeOfDevice());
    writeSeed(directory / "fuzz_bus_message" / "lists", lists());
    writeSeed(directory / "fuzz_bus_message" / "calls", calls());
    writeSeed(directory / "fuzz_bus_message" / "packets", linkEnds());
    ZOKBeacon record;
    record.setFirmwareVersion("1.2");
    record.setMajor(zobi::platform::NSNumber::numberWithInt(300));
    zobi::platform::NSKeyedArchiver archiver;
    record.encodeWithCoder(archiver);
    writeSeed(directory / "fuzz_keyed_archive" / "record", archiver.encodedData());
}
