#include "platform/bluez/service/BlockSwitch.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace zobi::platform::bluez {

namespace {

std::string firstWordOf(const std::filesystem::path& file) {
    std::string word;
    std::ifstream(file) >> word;
    return word;
}

}  // namespace

BlockSwitch readBlockSwitches(const std::string& folder) {
    std::error_code unreadable;
    BlockSwitch found = BlockSwitch::open;
    for (std::filesystem::directory_iterator entry(folder, unreadable), end; entry != end;
         entry.increment(unreadable)) {
        const std::filesystem::path& path = entry->path();
        const bool isSwitch = path.filename().string().starts_with("rfkill");
        if (!isSwitch || firstWordOf(path / "type") != "bluetooth") continue;
        if (firstWordOf(path / "soft") == "1") found = std::max(found, BlockSwitch::soft);
        if (firstWordOf(path / "hard") == "1") found = BlockSwitch::hard;
    }
    return found;
}

BlockSwitch readBlockSwitch(const std::string& adapter) {
    return readBlockSwitches("/sys/class/bluetooth/" + adapter);
}

BlockSwitch readBlockSwitchOfMachine() {
    return readBlockSwitches("/sys/class/rfkill");
}

}  // namespace zobi::platform::bluez
