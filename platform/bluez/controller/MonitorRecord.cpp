#include "platform/bluez/controller/MonitorRecord.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <utility>

namespace zobi::platform::bluez {

std::string MonitorRecord::usualFolder() {
    for (const char* const variable : {"RUNTIME_DIRECTORY", "XDG_RUNTIME_DIR"}) {
        const char* const folder = std::getenv(variable);
        if (folder && ::access(folder, W_OK) == 0) return folder;
    }
    return ::access("/run", W_OK) == 0 ? "/run" : "";
}

MonitorRecord::~MonitorRecord() {
    if (descriptor_ >= 0) ::close(descriptor_);
}

std::vector<std::uint16_t> MonitorRecord::takeLeft() const {
    std::vector<std::uint16_t> left;
    if (folder_.empty()) return left;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder_, error)) {
        if (!entry.path().filename().string().starts_with(prefix_)) continue;
        const int file = ::open(entry.path().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
        if (file < 0) continue;
        struct stat state {};
        // Locked, it belongs to a living process; without a name, another one has just taken it.
        if (::flock(file, LOCK_EX | LOCK_NB) == 0 && ::fstat(file, &state) == 0 && state.st_nlink > 0) {
            std::array<char, 1024> text{};
            const ssize_t size = ::read(file, text.data(), text.size() - 1);
            std::istringstream words(size > 0 ? text.data() : "");
            std::string life;
            words >> life;
            const bool isOfThisLife = life == life_;
            for (std::uint16_t handle = 0; isOfThisLife && words >> handle;) left.push_back(handle);
            ::unlink(entry.path().c_str());
        }
        ::close(file);
    }
    return left;
}

void MonitorRecord::write(const std::vector<std::uint16_t>& handles) {
    if (folder_.empty()) return;
    if (handles.empty()) {
        if (descriptor_ < 0) return;
        ::unlink(path_.c_str());
        ::close(std::exchange(descriptor_, -1));
        return;
    }
    if (descriptor_ < 0) {
        path_ = folder_ + '/' + prefix_ + "XXXXXX";
        descriptor_ = ::mkostemp(path_.data(), O_CLOEXEC);
        if (descriptor_ < 0) return;
        ::flock(descriptor_, LOCK_EX | LOCK_NB);
    }
    std::string text = life_;
    for (const std::uint16_t handle : handles) text += ' ' + std::to_string(handle);
    // A shorter text than before leaves nothing of it behind.
    if (::ftruncate(descriptor_, 0) != 0 || ::pwrite(descriptor_, text.data(), text.size(), 0) < 0) return;
}

}  // namespace zobi::platform::bluez
