#include "platform/bluez/diagnosis/Examination.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "platform/bluez/bus/BlueZNames.h"
#include "platform/bluez/bus/SystemBus.h"
#include "platform/bluez/controller/KernelMonitors.h"
#include "platform/bluez/controller/OpenControllerChannel.h"
#include "platform/bluez/diagnosis/Conditions.h"
#include "platform/bluez/diagnosis/Surroundings.h"
#include "platform/bluez/service/ReportRate.h"
#include "zobi/platform/standard/PollWaiting.h"
#include "zobi/platform/standard/StandardClock.h"
#include "zobi/platform/standard/StandardLog.h"
#include "zobi/platform/standard/StandardRunLoop.h"

namespace zobi::platform::bluez {

namespace {

// Each question is answered in milliseconds, on a busy machine in a second or two.
constexpr double answerDeadline = 5;

constexpr const char* introspectableInterface = "org.freedesktop.DBus.Introspectable";
constexpr const char* noSuchNameError = "org.freedesktop.DBus.Error.NameHasNoOwner";

/// Whether a list of texts, which is read whole, has this one.
bool has(MessageReader& list, std::string_view wanted) {
    bool isThere = false;
    list.forEach("s", [&] { isThere = list.string() == wanted || isThere; });
    return isThere;
}

/// Nothing if it is not there, or of another type.
template <typename T>
std::optional<T> property(const Properties& all, std::string_view name) {
    const auto found = std::ranges::find(all, name, &Properties::value_type::first);
    const T* const value = found == all.end() ? nullptr : found->second.get<T>();
    return value ? std::optional(*value) : std::nullopt;
}

std::string textOf(const BusError& error) {
    return error.name.empty() ? error.message : error.name + ": " + error.message;
}

}  // namespace

// Asking

void Examination::ask(const Method& method, const char* argument, Bus::Answer answer) {
    Message message = bus_->makeCall(method);
    if (argument) message.string(argument);
    question_.start(shared_from_this(), context_.runLoop, answerDeadline, "There is no answer.",
                    std::move(answer),
                    [&](Bus::Answer answered) { return bus_->call(message, std::move(answered)); });
}

void Examination::add(const char* subject, Severity severity, std::string found, std::string advice) {
    findings_.push_back({subject, severity, std::move(found), std::move(advice)});
}

void Examination::obstruct(const char* subject, const RadioCondition& condition, const std::string& found) {
    add(subject, Severity::obstacle, found.empty() ? condition.text : found, condition.remedy);
    end();
}

void Examination::end() {
    question_.cancel();
    if (const auto onEnd = std::exchange(onEnd_, nullptr)) onEnd();
}

// The bus

void Examination::start() {
    try {
        bus_ = context_.openBus({context_.runLoop, context_.clock});
    } catch (const std::system_error& error) {
        return failAtBus("It cannot be reached at " + systemBusAddress() + ": " + error.code().message() +
                         '.');
    }
    bus_->setDelegate(weak_from_this());
    askForService();
}

void Examination::busDidClose(const std::string& reason) {
    failAtBus("The connection to " + systemBusAddress() + " is lost: " + reason + '.');
}

void Examination::failAtBus(std::string found) {
    // What was found before is no longer so.
    findings_.clear();
    add("system bus", Severity::obstacle, std::move(found), busIsMissing().remedy);
    end();
}

// The service

void Examination::askForService() {
    ask({busName, busPath, busInterface, "GetNameOwner"}, blueZName,
        [this](MessageReader& /*reply*/, const BusError* error) {
            if (error && error->name != noSuchNameError) {
                const std::string address = systemBusAddress();
                return failAtBus(error->name.empty() ? "It does not answer at " + address + '.'
                                                     : "It refuses at " + address + ". " + textOf(*error));
            }
            add("system bus", Severity::good, "It answers at " + systemBusAddress() + '.');
            if (!error) {
                add("service", Severity::good, "The Bluetooth service runs.");
                return askForObjects();
            }
            ask({busName, busPath, busInterface, "ListActivatableNames"}, nullptr,
                [this](MessageReader& names, const BusError* noNames) {
                    obstruct("service", serviceIsMissing(!noNames && has(names, blueZName)));
                });
        });
}

void Examination::askForObjects() {
    ask({blueZName, "/", objectManagerInterface, "GetManagedObjects"}, nullptr,
        [this](MessageReader& objects, const BusError* error) {
            if (error && error->name == accessDeniedError) {
                const RadioCondition refused = accessIsRefused(error->message);
                return obstruct("access", refused,
                                "A policy keeps the service from " + userText() + ". " + error->message);
            }
            if (error) {
                const RadioCondition silent = serviceIsSilent();
                return obstruct("access", silent, silent.text + ' ' + textOf(*error));
            }
            add("access", Severity::good, "The service is open to " + userText() + '.');
            readObjects(objects);
            path_ = chosenAdapter(adapters_, context_.adapter);
            name_ = adapterName(path_);
            if (path_.empty()) {
                obstruct("adapter", adapterIsMissing(adapters_, context_.adapter));
            } else {
                examineAdapter();
            }
        });
}

void Examination::readObjects(MessageReader& objects) {
    objects.forEachObject([&](std::string_view objectPath) {
        const std::string path(objectPath);
        objects.forEachInterface([&](std::string_view interface) {
            if (interface == gattManagerInterface) abilities_[path].hasServiceRegistry = true;
            if (interface == adapterInterface) {
                readAdapter(path, objects.properties());
            } else if (interface == advertisingManagerInterface) {
                const auto free = property<std::uint8_t>(objects.properties(), "SupportedInstances");
                abilities_[path].freeAdvertisements = free;
            } else if (interface == monitorManagerInterface) {
                using Types = std::vector<std::string>;
                const auto types =
                    property<Types>(objects.properties(), "SupportedMonitorTypes").value_or(Types());
                abilities_[path].takesMonitors = std::ranges::find(types, monitorType) != types.end();
            } else if (interface == deviceInterface) {
                readDevice(path, objects.properties());
            } else {
                objects.skip("a{sv}");
            }
        });
    });
}

void Examination::readDevice(const std::string& path, const Properties& properties) {
    device_ = path;
    const auto has = [&](const char* name) {
        return std::ranges::find(properties, name, &Properties::value_type::first) != properties.end();
    };
    const bool isDual = has("Class") && has("ServiceData");
    if (isDual && !has("PreferredBearer")) {
        dualDevice_ = property<std::string>(properties, "Address").value_or(path);
    }
}

void Examination::readAdapter(const std::string& path, const Properties& properties) {
    Adapter& adapter = adapters_[path];
    adapter.address = property<std::string>(properties, "Address").value_or("");
    adapter.isPowered = property<bool>(properties, "Powered").value_or(false);
    adapter.isBlocked = property<std::string>(properties, "PowerState") == "off-blocked";
    abilities_[path].roles = property<std::vector<std::string>>(properties, "Roles");
}

// The adapter

void Examination::examineAdapter() {
    channel_ = context_.openChannel(name_);
    ask({blueZName, path_, adapterInterface, "GetDiscoveryFilters"}, nullptr,
        [this](MessageReader& filters, const BusError* error) {
            const Abilities& abilities = abilities_[path_];
            examineAdvertisements(filters, error);
            examinePeripheralRole(abilities);
            examineRole(abilities);
            examinePower();
            examineLinks();
        });
}

void Examination::examineAdvertisements(MessageReader& filters, const BusError* error) {
    if (!error && has(filters, "DuplicateData")) {
        return examineRate();
    }
    if (!error || error->name == unknownMethodError || error->name == unknownObjectError) {
        return add("scan", Severity::obstacle,
                   "The service has no filter that lets repeated advertisements through.",
                   "Install a newer version of the package bluez: 5.47 or later.");
    }
    add("scan", Severity::limitation, "The service does not tell its filters. " + textOf(*error));
}

void Examination::examineRate() {
    constexpr const char* remedy = "Remove those of all programs: systemctl restart bluetooth";
    const bool atService = abilities_[path_].takesMonitors;
    const auto [place, why] = context_.openMonitorPlace(name_, "");
    const auto use = place ? place->use() : std::nullopt;
    // What the service has is nobody's record.
    if (use && !atService && !use->unrecorded.empty()) {
        std::string handles;
        for (const auto handle : use->unrecorded) handles += ' ' + std::to_string(handle);
        add("monitors", Severity::limitation,
            "The kernel keeps monitors that no living program has recorded:" + handles + '.',
            std::string("If a killed program left them, its next start removes them. ") + remedy);
    }
    if (use && use->handles.size() >= use->most) {
        return add("scan", Severity::limitation,
                   limitedRateText("the kernel has no place left for advertisement monitors"), remedy);
    }
    if (atService || use) {
        return add("scan", Severity::good,
                   std::string("Every advertisement is heard: the ") +
                       (atService ? "service takes advertisement monitors."
                                  : "kernel takes advertisement monitors of this user."));
    }
    const std::string kernel = place ? "the kernel does not tell this process how many it takes" : why;
    add("scan", Severity::limitation,
        limitedRateText("the service takes no advertisement monitors, and " + kernel), remedyForRate());
}

void Examination::examinePeripheralRole(const Abilities& abilities) {
    const char* const advice = "To act as a peripheral, use another adapter.";
    if (!abilities.freeAdvertisements || !abilities.hasServiceRegistry) {
        add("peripheral role", Severity::limitation, name_ + " cannot act as a peripheral.", advice);
    } else if (*abilities.freeAdvertisements == 0) {
        add("peripheral role", Severity::limitation,
            name_ + " cannot act as a peripheral: it advertises as much as it can for other programs.",
            "End one of them, or use another adapter.");
    } else {
        add("peripheral role", Severity::good, name_ + " can act as a peripheral.");
    }
}

void Examination::examineRole(const Abilities& abilities) {
    std::string found = name_ + " (" + adapters_[path_].address + ')';
    if (adapters_.size() > 1) found += ", of " + std::to_string(adapters_.size());
    const auto canConnect = [](const std::string& role) { return role.starts_with("central"); };
    LowEnergy lowEnergy = channel_ ? channel_->lowEnergy() : LowEnergy::unknown;
    const bool hasNoRole = abilities.roles && std::ranges::none_of(*abilities.roles, canConnect);
    if (hasNoRole && lowEnergy != LowEnergy::off) lowEnergy = LowEnergy::missing;
    if (lowEnergy == LowEnergy::missing || lowEnergy == LowEnergy::off) {
        const RadioCondition missing = lowEnergyIsMissing(name_, lowEnergy == LowEnergy::off);
        return add("adapter", Severity::obstacle, found + ". " + missing.text, missing.remedy);
    }
    add("adapter", Severity::good, found + '.');
}

void Examination::examinePower() {
    const Adapter& adapter = adapters_[path_];
    const BlockSwitch blockSwitch = blockSwitchOf(adapter, name_);
    const bool isBlocked = blockSwitch != BlockSwitch::open;
    if (adapter.isPowered) {
        add("power", Severity::good, name_ + " is on.");
    } else if (isBlocked) {
        add("power", Severity::obstacle, name_ + " is off, and cannot be turned on while it is blocked.");
    } else {
        add("power", Severity::obstacle, name_ + " is off.", conditionOfAdapter(adapters_, path_).remedy);
    }
    if (!isBlocked) return add("block switch", Severity::good, "It does not block " + name_ + '.');
    const RadioCondition blocked = adapterIsBlocked(name_, blockSwitch);
    add("block switch", Severity::obstacle, blocked.text, blocked.remedy);
}

// Links

void Examination::examineLinks() {
    if (!dualDevice_.empty()) {
        add("transport", Severity::limitation,
            dualDevice_ +
                " has two kinds of Bluetooth, and this service cannot be asked to connect to it over Low "
                "Energy.",
            "If connecting fails, use version 5.82 or later of the package bluez, and turn on its "
            "experimental interfaces: Experimental = true under [General] in /etc/bluetooth/main.conf, and "
            "systemctl restart bluetooth");
    }
    if (channel_) {
        add("links", Severity::good,
            channel_->asksController()
                ? "The controller tells why they end, and how strong they are."
                : "The kernel tells roughly why they end, and how strong they were up to 3 s ago.");
        return end();
    }
    if (device_.empty()) return linksCannotBeWatched(false);
    // The versions of the service that tell it show so at every device.
    ask({blueZName, device_, introspectableInterface, "Introspect"}, nullptr,
        [this](MessageReader& description, const BusError* error) {
            constexpr std::string_view signal = "<signal name=\"Disconnected\"";
            linksCannotBeWatched(!error && description.string().find(signal) != std::string_view::npos);
        });
}

void Examination::linksCannotBeWatched(bool tellsLinkEnds) {
    const std::error_code error = bluetoothSocketError();
    std::string found = tellsLinkEnds ? "The service tells why they end, nobody how strong they are."
                                      : "Nobody tells why they end, so that lost ones are not brought back, "
                                        "nor how strong they are.";
    std::string advice =
        error.value() == EAFNOSUPPORT
            ? "Share the network of the host, and let AF_BLUETOOTH pass RestrictAddressFamilies"
            : "Look for a policy that forbids the raw socket of " + name_ +
                  (error ? ": " + error.message() : "");
    advice += tellsLinkEnds ? "." : "; or install bluez 5.83 or later, whose service tells why.";
    add("links", Severity::limitation, std::move(found), std::move(advice));
    end();
}

std::vector<Finding> diagnose(const BlueZOptions& options) {
    const SystemTime clock;
    StandardLog log(nullptr);
    StandardRunLoop runLoop(clock, std::make_unique<PollWaiting>());
    const auto openChannel = [&](const std::string& adapter) {
        return openControllerChannel(adapter, runLoop);
    };
    RadioContext context{runLoop, clock, log, &Bus::overSystemBus, openChannel, options.adapter};
    context.openMonitorPlace = [&](const std::string& adapter, const std::string& service) {
        return KernelMonitors::open(adapter, service, runLoop);
    };
    const auto examination = std::make_shared<Examination>(context, [&] { runLoop.stop(); });
    runLoop.dispatchAsync([&] { examination->start(); });
    runLoop.run();
    return examination->findings();
}

}  // namespace zobi::platform::bluez
