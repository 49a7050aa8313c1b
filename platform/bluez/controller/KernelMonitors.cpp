#include "platform/bluez/controller/KernelMonitors.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <iterator>
#include <utility>

#include "platform/bluez/controller/HCI.h"
#include "platform/bluez/controller/KernelSocket.h"
#include "platform/bluez/controller/ManagementPacket.h"
#include "platform/bluez/controller/ManagementSocket.h"
#include "platform/bluez/controller/OpenControllerChannel.h"

namespace zobi::platform::bluez {

namespace {

constexpr std::uint16_t featuresCommand = 0x0051;
constexpr std::uint16_t addCommand = 0x0052;
constexpr std::uint16_t removeCommand = 0x0053;
// Another command about monitors, of whatever program, is being carried out.
constexpr std::uint8_t busyStatus = 0x0A;
// There is no such monitor.
constexpr std::uint8_t unknownStatus = 0x11;

constexpr std::size_t largestPacket = 2048;
constexpr std::size_t patternSize = 31;

// The kernel answers at once, unless its controller does not.
constexpr double answerDeadline = 10;
// All answers to a removal, where the run loop may be about to end; and to the question what there is.
constexpr std::chrono::milliseconds promptDeadline(200);
constexpr double busyDelay = 0.1;

std::vector<std::uint8_t> parametersOf(const std::vector<AdvertisementPattern>& patterns) {
    std::vector<std::uint8_t> parameters{static_cast<std::uint8_t>(patterns.size())};
    for (const auto& [position, type, bytes] : patterns) {
        for (const auto byte : {type, position, static_cast<std::uint8_t>(bytes.size())}) {
            parameters.push_back(byte);
        }
        parameters.insert(parameters.end(), bytes.begin(), bytes.end());
        parameters.resize(parameters.size() + patternSize - bytes.size());
    }
    return parameters;
}

/// Tells one life of the controller at the service from the next. The kernel gives each controller that it
/// meets a new entry.
std::string lifeOf(const std::string& adapter, const std::string& service) {
    struct stat entry {};
    const bool isThere = ::stat(("/sys/class/bluetooth/" + adapter).c_str(), &entry) == 0;
    return std::to_string(isThere ? entry.st_ino : 0) + service;
}

/// Which features there are and which are in use, 4 bytes each; how many monitors there can be, and patterns
/// in each; how many there are, and their handles.
std::optional<MonitorUse> useIn(std::span<const std::uint8_t> features) {
    constexpr std::size_t most = 8;
    constexpr std::size_t first = 13;
    if (features.size() < first) return std::nullopt;
    MonitorUse use{.most = number16(features, most)};
    for (std::size_t at = first; at + 1 < features.size(); at += 2) {
        use.handles.push_back(number16(features, at));
    }
    return use;
}

}  // namespace

OpenedPlace KernelMonitors::open(const std::string& adapter, const std::string& service, RunLoop& runLoop) {
    const auto controller = controllerNumber(adapter);
    if (!controller) return {};
    if (!ManagementSocket::isAllowed()) return {nullptr, "this process lacks the capability CAP_NET_ADMIN"};
    const std::string folder = MonitorRecord::usualFolder();
    if (folder.empty()) {
        return {
            nullptr,
            "this process may write no folder ($RUNTIME_DIRECTORY, $XDG_RUNTIME_DIR, /run) to record what "
            "it has in the kernel"};
    }
    auto record = std::make_unique<MonitorRecord>(folder, adapter, lifeOf(adapter, service));
    return {std::make_shared<KernelMonitors>(
                *controller, [] { return KernelSocket::open(noController, controlChannel); },
                std::move(record), runLoop),
            ""};
}

KernelMonitors::~KernelMonitors() {
    source_.reset();
    const PacketDeadline deadline(promptDeadline);
    // An answer may be on its way; that to a removal takes its handle away.
    bool isAnswered = !isSent_ || waitForAnswer(deadline);
    if (!handles_.empty() && descriptor_ < 0) descriptor_ = openSocket_().value_or(-1);
    while (isAnswered && !handles_.empty() && descriptor_ >= 0) {
        commands_ = {removalOf(handles_.front())};
        isSent_ = write(commands_.front());
        isAnswered = isSent_ && waitForAnswer(deadline) && !isBusy_;
    }
    close();
}

bool KernelMonitors::waitForAnswer(const PacketDeadline& deadline) {
    std::array<std::uint8_t, largestPacket> packet;  // NOLINT(cppcoreguidelines-pro-type-member-init)
    while (isSent_ && deadline.awaitPacket(descriptor_)) {
        const auto size = ::read(descriptor_, packet.data(), packet.size());
        if (size <= 0) return false;
        handle(std::span(packet).first(static_cast<std::size_t>(size)));
    }
    return !isSent_;
}

void KernelMonitors::close() {
    source_.reset();
    if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
    if (deadline_) std::exchange(deadline_, nullptr)->invalidate();
}

void KernelMonitors::add(const std::vector<AdvertisementPattern>& patterns, Placed placed) {
    patterns_ = patterns;
    placed_ = std::move(placed);
    commands_.push_back({featuresCommand});
    proceed();
}

void KernelMonitors::remove() {
    isRemoved_ = true;
    placed_ = nullptr;
    // The one that was sent is answered.
    const auto unsent = commands_.begin() + (isSent_ ? 1 : 0);
    const auto isNeeded = [](const Command& command) { return command.code == removeCommand; };
    commands_.erase(std::stable_partition(unsent, commands_.end(), isNeeded), commands_.end());
    proceed();
    // The kernel answers in milliseconds, and the run loop may be about to end. If it does not, the rest goes
    // on with the loop.
    const PacketDeadline deadline(promptDeadline);
    while (isSent_ && waitForAnswer(deadline)) proceed();
}

std::optional<MonitorUse> KernelMonitors::use() {
    descriptor_ = openSocket_().value_or(-1);
    if (descriptor_ < 0) return std::nullopt;
    std::optional<MonitorUse> found;
    std::array<std::uint8_t, largestPacket> packet;  // NOLINT(cppcoreguidelines-pro-type-member-init)
    const PacketDeadline deadline(promptDeadline);
    for (bool isAsked = write({featuresCommand}); isAsked && deadline.awaitPacket(descriptor_);) {
        const auto size = ::read(descriptor_, packet.data(), packet.size());
        if (size <= 0) break;
        const auto answer =
            answerIn(std::span(packet).first(static_cast<std::size_t>(size)), featuresCommand);
        if (answer) found = useIn(answer->subspan(1));
        isAsked = !answer;
    }
    close();
    if (!found) return std::nullopt;
    const auto living = record_->living();
    std::ranges::copy_if(found->handles, std::back_inserter(found->unrecorded), [&](std::uint16_t handle) {
        return std::ranges::find(living, handle) == living.end();
    });
    return found;
}

KernelMonitors::Command KernelMonitors::removalOf(std::uint16_t handle) {
    return {removeCommand, {lowByte(handle), highByte(handle)}};
}

void KernelMonitors::proceed() {
    if (isSent_) return;
    if (std::exchange(isBusy_, false)) {
        deadline_->invalidate();
        deadline_ = runLoop_.after(busyDelay, [self = shared_from_this()] { self->proceed(); });
        return;
    }
    if (commands_.empty() && isRemoved_) {
        for (const std::uint16_t handle : handles_) commands_.push_back(removalOf(handle));
    }
    if (!commands_.empty()) return send();
    const auto self = shared_from_this();
    close();
    tell("");
}

void KernelMonitors::send() {
    if (descriptor_ < 0) {
        const auto opened = openSocket_();
        if (!opened) return giveUp();
        descriptor_ = *opened;
        source_ = runLoop_.addSource({descriptor_, POLLIN}, [this] { drain(); });
    }
    if (!write(commands_.front())) return giveUp();
    isSent_ = true;
    if (deadline_) deadline_->invalidate();
    deadline_ = runLoop_.after(answerDeadline, [self = shared_from_this()] { self->giveUp(); });
}

bool KernelMonitors::write(const Command& command) const {
    const auto packet = managementPacket(command.code, controller_, command.parameters);
    return ::write(descriptor_, packet.data(), packet.size()) == static_cast<ssize_t>(packet.size());
}

void KernelMonitors::drain() {
    const auto self = shared_from_this();
    std::array<std::uint8_t, largestPacket> packet;  // NOLINT(cppcoreguidelines-pro-type-member-init)
    while (descriptor_ >= 0) {
        const auto size = ::read(descriptor_, packet.data(), packet.size());
        if (size < 0 && errno == EINTR) continue;
        if (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
        if (size <= 0) return giveUp();
        handle(std::span(packet).first(static_cast<std::size_t>(size)));
        proceed();
    }
}

std::optional<std::span<const std::uint8_t>> KernelMonitors::answerIn(std::span<const std::uint8_t> packet,
                                                                      std::uint16_t command) const {
    constexpr std::size_t commandSize = 2;
    if (packet.size() <= managementHeaderSize + commandSize || number16(packet, 2) != controller_)
        return std::nullopt;
    const std::uint16_t event = number16(packet, 0);
    const bool isAnswer = event == managementCompleteEvent || event == managementStatusEvent;
    if (!isAnswer || number16(packet, managementHeaderSize) != command) return std::nullopt;
    return packet.subspan(managementHeaderSize + commandSize);
}

void KernelMonitors::handle(std::span<const std::uint8_t> packet) {
    if (!isSent_) return;
    const Command command = commands_.front();
    const auto answer = answerIn(packet, command.code);
    if (!answer) return;
    isSent_ = false;
    const std::uint8_t status = answer->front();
    isBusy_ = status == busyStatus;
    if (isBusy_) return;
    commands_.pop_front();
    const auto returned = answer->subspan(1);
    const bool isRemoval = command.code == removeCommand;
    if (isRemoval && (status == 0 || status == unknownStatus)) {
        std::erase(handles_, number16(command.parameters, 0));
        record_->write(handles_);
    } else if (status != 0 || returned.size() < sizeof(std::uint16_t)) {
        commands_.clear();
        // As while the controller is off. They stay in the record, which the next one that begins takes over.
        if (isRemoval) handles_.clear();
        tell("the kernel refuses with status " + std::to_string(status));
    } else if (command.code == addCommand) {
        handles_.push_back(number16(returned, 0));
        if (record_->write(handles_)) return;
        // If this process were killed, they would stay.
        commands_.clear();
        tell("this process cannot record what it has in the kernel");
    } else {
        featuresWereRead(returned);
    }
}

void KernelMonitors::featuresWereRead(std::span<const std::uint8_t> features) {
    const auto found = useIn(features);
    if (!found) return tell("the kernel does not tell how many it takes");
    const auto& present = found->handles;
    for (const std::uint16_t handle : record_->takeLeft()) {
        if (std::ranges::find(present, handle) != present.end()) handles_.push_back(handle);
    }
    record_->write(handles_);
    for (const std::uint16_t handle : handles_) commands_.push_back(removalOf(handle));
    if (isRemoved_) return;
    const std::size_t taken = present.size() - handles_.size();
    const std::size_t free = found->most - std::min(taken, found->most);
    if (free == 0) return tell("other programs use all monitors of the kernel");
    for (const auto& monitor : monitorsOf(patterns_, free)) {
        commands_.push_back({addCommand, parametersOf(monitor)});
    }
}

void KernelMonitors::giveUp() {
    const auto self = shared_from_this();
    isSent_ = false;
    commands_.clear();
    close();
    tell("the kernel does not answer");
}

void KernelMonitors::tell(const std::string& trouble) {
    if (!placed_) return;
    runLoop_.dispatchAsync([placed = std::exchange(placed_, nullptr), trouble] { placed(trouble); });
}

}  // namespace zobi::platform::bluez
