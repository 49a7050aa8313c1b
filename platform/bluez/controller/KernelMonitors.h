#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/bluez/controller/MonitorPlace.h"
#include "platform/bluez/controller/MonitorRecord.h"
#include "platform/bluez/controller/PacketDeadline.h"
#include "zobi/platform/NSTimer.h"
#include "zobi/platform/RunLoop.h"

namespace zobi::platform::bluez {

/// Advertisement monitors over the kernel's management socket, for a process with the capability
/// CAP_NET_ADMIN. Before it adds its own, it removes those that killed processes have left.
///
/// The kernel keeps monitors without the socket, which is open only while commands are sent: it would bring
/// every advertisement a second time.
class KernelMonitors final : public MonitorPlace, public std::enable_shared_from_this<KernelMonitors> {
public:
    /// None where this process may not, or could not record what it has in the kernel.
    /// @param adapter "hci0", for example.
    /// @param service the name on the bus of the Bluetooth service, which removes all monitors when it
    /// starts.
    static OpenedPlace open(const std::string& adapter, const std::string& service, RunLoop& runLoop);

    /// Opens a management socket that does not block. Nothing where that cannot be.
    using OpenSocket = std::function<std::optional<int>()>;

    KernelMonitors(std::uint16_t controller, OpenSocket openSocket, std::unique_ptr<MonitorRecord> record,
                   RunLoop& runLoop)
        : controller_(controller),
          openSocket_(std::move(openSocket)),
          record_(std::move(record)),
          runLoop_(runLoop) {}
    /// Removes what is left, as the run loop may have ended.
    ~KernelMonitors() override;

    void add(const std::vector<AdvertisementPattern>& patterns, Placed placed) override;
    void remove() override;
    std::optional<MonitorUse> use() override;

private:
    struct Command {
        std::uint16_t code = 0;
        std::vector<std::uint8_t> parameters = {};
    };

    static Command removalOf(std::uint16_t handle);
    void proceed();
    void send();
    bool write(const Command& command) const;
    bool waitForAnswer(const PacketDeadline& deadline);
    void drain();
    /// The answer to a command, its status first; nothing for any other packet.
    std::optional<std::span<const std::uint8_t>> answerIn(std::span<const std::uint8_t> packet,
                                                          std::uint16_t command) const;
    void handle(std::span<const std::uint8_t> packet);
    void featuresWereRead(std::span<const std::uint8_t> features);
    void giveUp();
    void tell(const std::string& trouble);
    void close();

    std::uint16_t controller_;
    OpenSocket openSocket_;
    std::unique_ptr<MonitorRecord> record_;
    RunLoop& runLoop_;
    std::vector<AdvertisementPattern> patterns_;
    Placed placed_;
    /// Those in the kernel: of killed processes, and of this one.
    std::vector<std::uint16_t> handles_;
    std::deque<Command> commands_;
    bool isSent_ = false;
    bool isBusy_ = false;
    bool isRemoved_ = false;
    int descriptor_ = -1;
    std::shared_ptr<RunLoopSource> source_;
    /// Keeps this object until the kernel has answered.
    std::shared_ptr<NSTimer> deadline_;
};

}  // namespace zobi::platform::bluez
