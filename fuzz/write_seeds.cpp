// Writes what the fuzzers start from: write_seeds DIRECTORY makes DIRECTORY/<fuzzer>/<seed>.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ZobiConnectKit/ZOKBeacon.h"
#include "platform/standard/KeyedArchive.h"
#include "tests/payload_table.h"

namespace {

void writeSeed(const std::filesystem::path& path, const std::vector<std::uint8_t>& bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    for (const std::uint8_t byte : bytes) file.put(static_cast<char>(byte));
}

}  // namespace

int main(int argumentCount, char** arguments) {
    if (argumentCount != 2) return 2;
    const std::filesystem::path directory(arguments[1]);
    int number = 0;
    for (const PayloadCase& payload : payloadCases()) {
        writeSeed(directory / "fuzz_payload" / std::to_string(++number), payload.payload);
    }
    ZOKBeacon record;
    record.setFirmwareVersion("1.2");
    record.setMajor(platform::NSNumber::numberWithInt(300));
    platform::NSKeyedArchiver archiver;
    record.encodeWithCoder(archiver);
    writeSeed(directory / "fuzz_keyed_archive" / "record", archiver.encodedData());
}
