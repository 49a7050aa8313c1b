#include "platform/bluez/diagnosis/Surroundings.h"

#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>

#include "platform/bluez/controller/HCI.h"

namespace zobi::platform::bluez {

namespace {

constexpr const char* kernelFolder = "/sys/class/bluetooth";

std::string groupName(gid_t group) {
    const ::group* const entry = ::getgrgid(group);
    return entry ? entry->gr_name : std::to_string(group);
}

}  // namespace

std::string userText() {
    const passwd* const entry = ::getpwuid(::geteuid());
    std::string text = "user " + (entry ? entry->pw_name : std::to_string(::geteuid())) + " (groups ";
    text += groupName(::getegid());
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(::getgroups(0, nullptr), 0)));
    groups.resize(
        static_cast<std::size_t>(std::max(::getgroups(static_cast<int>(groups.size()), groups.data()), 0)));
    for (const gid_t group : groups) {
        if (group != ::getegid()) text += ", " + groupName(group);
    }
    return text + ')';
}

bool hasServiceInstalled() {
    static constexpr std::array places{"/usr/libexec/bluetooth/bluetoothd", "/usr/lib/bluetooth/bluetoothd",
                                       "/usr/libexec/bluetoothd", "/usr/sbin/bluetoothd"};
    return std::ranges::any_of(places, [](const char* place) {
        std::error_code unreadable;
        return std::filesystem::exists(place, unreadable);
    });
}

bool hasKernelBluetooth() {
    std::error_code unreadable;
    return std::filesystem::exists(kernelFolder, unreadable);
}

std::vector<std::string> kernelAdapters() {
    std::vector<std::string> adapters;
    std::error_code unreadable;
    for (std::filesystem::directory_iterator entry(kernelFolder, unreadable), end; entry != end;
         entry.increment(unreadable)) {
        std::string name = entry->path().filename().string();
        // Links have entries too: hci0:64.
        if (name.find(':') == std::string::npos) adapters.push_back(std::move(name));
    }
    std::ranges::sort(adapters);
    return adapters;
}

std::error_code bluetoothSocketError() {
    const int descriptor = ::socket(AF_BLUETOOTH, SOCK_RAW | SOCK_CLOEXEC, hciProtocol);
    if (descriptor < 0) return {errno, std::generic_category()};
    ::close(descriptor);
    return {};
}

}  // namespace zobi::platform::bluez
