#include "platform/bluez/controller/MonitorRecord.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <utility>

namespace zobi::platform::bluez {

std::string MonitorRecord::usualFolder() {
    std::string list;
    for (const char* const variable : {"RUNTIME_DIRECTORY", "XDG_RUNTIME_DIR"}) {
        const char* const folders = std::getenv(variable);
        if (folders) list += folders + std::string(":");
    }
    std::istringstream folders(list + "/run");
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (::access(folder.c_str(), W_OK | X_OK) == 0) return folder;
    }
    return "";
}

MonitorRecord::~MonitorRecord() {
    if (descriptor_ >= 0) ::close(descriptor_);
}

std::vector<std::uint16_t> MonitorRecord::takeLeft() const {
    std::vector<std::uint16_t> left;
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

bool MonitorRecord::createFile() {
    struct stat state {};
    // Until it is locked, another process may take it for one that was left, and delete it.
    do {
        if (descriptor_ >= 0) ::close(descriptor_);
        path_ = folder_ + '/' + prefix_ + "XXXXXX";
        descriptor_ = ::mkostemp(path_.data(), O_CLOEXEC);
        if (descriptor_ < 0) return false;
        while (::flock(descriptor_, LOCK_EX) != 0 && errno == EINTR) {
        }
    } while (::fstat(descriptor_, &state) == 0 && state.st_nlink == 0);
    return true;
}

bool MonitorRecord::write(const std::vector<std::uint16_t>& handles) {
    if (handles.empty()) {
        if (descriptor_ < 0) return true;
        ::unlink(path_.c_str());
        ::close(std::exchange(descriptor_, -1));
        return true;
    }
    if (descriptor_ < 0 && !createFile()) return false;
    std::string text = life_;
    for (const std::uint16_t handle : handles) text += ' ' + std::to_string(handle);
    // A shorter text than before leaves nothing of it behind.
    return ::ftruncate(descriptor_, 0) == 0 &&
           ::pwrite(descriptor_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}

}  // namespace zobi::platform::bluez
