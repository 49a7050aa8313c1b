#include "platform/bluez/controller/MonitorRecord.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sstream>
#include <system_error>
#include <utility>

namespace zobi::platform::bluez {

namespace {

struct Record {
    std::string life;
    std::vector<std::uint16_t> handles;
    bool isOfLiving = false;
};

Record read(int file) {
    std::array<char, 1024> text{};
    const ssize_t size = ::read(file, text.data(), text.size() - 1);
    std::istringstream words(size > 0 ? text.data() : "");
    Record record;
    words >> record.life;
    for (std::uint16_t handle = 0; words >> handle;) record.handles.push_back(handle);
    return record;
}

/// While a record is passed to `action`, no other process takes it.
void forEachRecord(const std::string& folder, const std::string& prefix,
                   const std::function<void(const std::string& path, const Record& record)>& action) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        if (!entry.path().filename().string().starts_with(prefix)) continue;
        const int file = ::open(entry.path().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
        if (file < 0) continue;
        struct stat state {};
        const bool isOfLiving = ::flock(file, LOCK_EX | LOCK_NB) != 0;
        // Without a name, another process has just taken it.
        if (::fstat(file, &state) == 0 && state.st_nlink > 0) {
            Record record = read(file);
            record.isOfLiving = isOfLiving;
            action(entry.path().string(), record);
        }
        ::close(file);
    }
}

}  // namespace

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
    forEachRecord(folder_, prefix_, [&](const std::string& path, const Record& record) {
        if (record.isOfLiving) return;
        if (record.life == life_) left.insert(left.end(), record.handles.begin(), record.handles.end());
        ::unlink(path.c_str());
    });
    return left;
}

std::vector<std::uint16_t> MonitorRecord::living() const {
    std::vector<std::string> folders{folder_, "/run"};
    for (const char* const parent : {"/run", "/run/user"}) {
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator(parent, error)) {
            if (entry.is_directory(error)) folders.push_back(entry.path().string());
        }
    }
    std::vector<std::uint16_t> handles;
    for (const std::string& folder : folders) {
        forEachRecord(folder, prefix_, [&](const std::string& /*path*/, const Record& record) {
            if (!record.isOfLiving) return;
            handles.insert(handles.end(), record.handles.begin(), record.handles.end());
        });
    }
    return handles;
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
    struct stat state {};
    // The folder of a login goes with it, though this program may stay.
    const bool isThere = descriptor_ >= 0 && ::fstat(descriptor_, &state) == 0 && state.st_nlink > 0;
    if (!isThere && !createFile()) return false;
    std::string text = life_;
    for (const std::uint16_t handle : handles) text += ' ' + std::to_string(handle);
    // A shorter text than before leaves nothing of it behind.
    return ::ftruncate(descriptor_, 0) == 0 &&
           ::pwrite(descriptor_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}

}  // namespace zobi::platform::bluez
