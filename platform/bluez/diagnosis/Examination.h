#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bluez/RadioContext.h"
#include "platform/bluez/bus/Bus.h"
#include "platform/bluez/bus/TimedCall.h"
#include "platform/bluez/service/AdapterChoice.h"
#include "zobi/platform/bluez/Diagnosis.h"

namespace zobi::platform::bluez {

/// Finds out what stands between a program and the radio, by one question to the bus or the service after the
/// other. Main thread only.
class Examination final : public BusDelegate, public std::enable_shared_from_this<Examination> {
public:
    /// @param context what it refers to must outlive every call, though not the object.
    /// @param onEnd called once, when the findings are complete.
    Examination(RadioContext context, std::function<void()> onEnd)
        : context_(std::move(context)), onEnd_(std::move(onEnd)) {}

    void start();
    const std::vector<Finding>& findings() const { return findings_; }

    void busDidClose(const std::string& reason) override;

private:
    using Severity = Finding::Severity;

    /// What the service shows of an adapter besides.
    struct Abilities {
        /// Nothing in versions of the service that do not tell; empty if there is no Low Energy.
        std::optional<std::vector<std::string>> roles;
        bool hasServiceRegistry = false;
        bool takesMonitors = false;
        /// How many advertisements more there can be; nothing if there can be none at all.
        std::optional<std::uint8_t> freeAdvertisements;
    };

    /// Calls an operation with one argument, or with none. An error without a name means that there was no
    /// answer.
    void ask(const Method& method, const char* argument, Bus::Answer answer);
    void add(const char* subject, Severity severity, std::string found, std::string advice = {});
    /// The last finding: what depends on it is left out.
    /// @param found what was found, where that is more than the condition's own text.
    void obstruct(const char* subject, const RadioCondition& condition, const std::string& found = {});
    void end();

    void failAtBus(std::string found);
    void askForService();
    void askForObjects();
    void readObjects(MessageReader& objects);
    void readDevice(const std::string& path, const Properties& properties);
    void readAdapter(const std::string& path, const Properties& properties);
    void examineAdapter();
    void examineAdvertisements(MessageReader& filters, const BusError* error);
    void examineRate();
    void examinePeripheralRole(const Abilities& abilities);
    void examineRole(const Abilities& abilities);
    void examinePower();
    void examineLinks();
    void linksCannotBeWatched(bool tellsLinkEnds);

    RadioContext context_;
    std::function<void()> onEnd_;
    std::vector<Finding> findings_;
    std::shared_ptr<Bus> bus_;
    TimedCall question_;

    Adapters adapters_;
    std::map<std::string, Abilities, std::less<>> abilities_;
    /// The path and the name of the adapter that is used.
    std::string path_;
    std::string name_;
    /// The channel to it; null if there is none.
    std::shared_ptr<ControllerChannel> channel_;
    /// The address of a device of which the service does not tell how it will be connected.
    std::string dualDevice_;
    /// The path of any device that the service has; empty if it has none.
    std::string device_;
};

}  // namespace zobi::platform::bluez
