#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zobi::platform::bluez {

/// A file with the handles of the monitors that this process has in the kernel, which keeps them when the
/// process is killed. The file is locked as long as the process lives.
class MonitorRecord {
public:
    /// @param folder where the files are.
    /// @param adapter "hci0", for example.
    /// @param life tells one life of the controller from the next, in which the handles count anew.
    MonitorRecord(std::string folder, const std::string& adapter, std::string life)
        : folder_(std::move(folder)), prefix_("zobi-monitors-" + adapter + '-'), life_(std::move(life)) {}
    ~MonitorRecord();
    MonitorRecord(const MonitorRecord&) = delete;
    MonitorRecord& operator=(const MonitorRecord&) = delete;

    /// The handles that processes have left which live no more. Their files are deleted.
    std::vector<std::uint16_t> takeLeft() const;
    /// The handles that living processes have recorded, in whichever of the usual folders.
    std::vector<std::uint16_t> living() const;
    /// Replaces what the file says; without handles there is no file. False if it cannot be written.
    bool write(const std::vector<std::uint16_t>& handles);

    /// A folder for files that end with the run of the machine: the first that this process may write of
    /// those in RUNTIME_DIRECTORY (which may name several), XDG_RUNTIME_DIR, and /run; empty if there is
    /// none.
    static std::string usualFolder();

private:
    bool createFile();

    std::string folder_;
    std::string prefix_;
    std::string life_;
    std::string path_;
    int descriptor_ = -1;
};

}  // namespace zobi::platform::bluez
