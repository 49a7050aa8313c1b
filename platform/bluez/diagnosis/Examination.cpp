#include "platform/bluez/diagnosis/Examination.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "platform/bluez/bus/BlueZNames.h"
#include "platform/bluez/controller/ManagementSocket.h"
#include "platform/bluez/diagnosis/Surroundings.h"
#include "platform/bluez/service/BlockSwitch.h"

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

std::string joined(const std::vector<std::string>& texts) {
    std::string all;
    for (const std::string& text : texts) all += (all.empty() ? "" : ", ") + text;
    return all;
}

std::string textOf(const BusError& error) {
    return error.name.empty() ? error.message : error.name + ": " + error.message;
}

}  // namespace

// Asking

void Examination::ask(const Method& method, const char* argument, Answered answered) {
    answered_ = std::move(answered);
    const auto finish = [weakSelf = weak_from_this()](MessageReader* reply, const BusError& error) {
        if (const auto self = weakSelf.lock()) self->finishAsking(reply, error);
    };
    Message message = bus_->makeCall(method);
    if (argument) message.string(argument);
    slot_ = bus_->call(message, [finish](MessageReader& reply, const BusError* error) {
        error ? finish(nullptr, *error) : finish(&reply, {});
    });
    deadline_ = context_.runLoop.after(answerDeadline, [finish] {
        finish(nullptr, {"", "There is no answer."});
    });
}

void Examination::finishAsking(MessageReader* reply, const BusError& error) {
    slot_.reset();
    deadline_->invalidate();
    std::exchange(answered_, nullptr)(reply, error);
}

void Examination::add(const char* subject, Severity severity, std::string found, std::string advice) {
    findings_.push_back({subject, severity, std::move(found), std::move(advice)});
}

void Examination::end() {
    slot_.reset();
    if (deadline_) deadline_->invalidate();
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
    add("system bus", Severity::obstacle, std::move(found), remedyFor(Availability::noBus, ""));
    end();
}

// The service

void Examination::askForService() {
    ask({busName, busPath, busInterface, "GetNameOwner"}, blueZName,
        [this](MessageReader* reply, const BusError& error) {
            if (!reply && error.name != noSuchNameError) {
                const std::string address = systemBusAddress();
                return failAtBus(error.name.empty() ? "It does not answer at " + address + '.'
                                                    : "It refuses at " + address + ". " + textOf(error));
            }
            add("system bus", Severity::good, "It answers at " + systemBusAddress() + '.');
            if (reply) {
                add("service", Severity::good, "The Bluetooth service runs.");
                return askForObjects();
            }
            ask({busName, busPath, busInterface, "ListActivatableNames"}, nullptr,
                [this](MessageReader* names, const BusError& /*error*/) {
                    serviceIsMissing(names && has(*names, blueZName));
                });
        });
}

void Examination::serviceIsMissing(bool canBeStarted) {
    if (!canBeStarted && !hasServiceInstalled()) {
        add("service", Severity::obstacle, "The Bluetooth service is not installed.",
            "Install the package bluez, on the machine whose system bus this is.");
    } else if (!hasKernelBluetooth()) {
        add("service", Severity::obstacle,
            "The Bluetooth service does not run, and the kernel has not met an adapter, for which it waits.",
            remedyFor(Availability::noAdapter, ""));
    } else {
        add("service", Severity::obstacle, "The Bluetooth service is installed but does not run.",
            "Start it, now and with the machine: systemctl enable --now bluetooth");
    }
    end();
}

void Examination::askForObjects() {
    ask({blueZName, "/", objectManagerInterface, "GetManagedObjects"}, nullptr,
        [this](MessageReader* objects, const BusError& error) {
            if (!objects && error.name == accessDeniedError) {
                // Groups are for the bus's own policy, which each kind of bus words as it likes.
                static constexpr std::array otherPolicies{"AppArmor", "SELinux"};
                const bool isOfBus = std::ranges::none_of(otherPolicies, [&](const char* policy) {
                    return error.message.find(policy) != std::string::npos;
                });
                add("access", Severity::obstacle,
                    "A policy keeps the service from " + userText() + '.' +
                        (isOfBus ? "" : ' ' + error.message),
                    isOfBus ? remedyFor(Availability::refused, "") : "Have that policy allow it.");
                return end();
            }
            if (!objects) {
                add("access", Severity::obstacle, "The service does not list its objects. " + textOf(error),
                    "Look at its log, and restart it: systemctl restart bluetooth");
                return end();
            }
            add("access", Severity::good, "The service is open to " + userText() + '.');
            readObjects(*objects);
            path_ = chosenAdapter(adapters_, context_.adapter);
            name_ = adapterName(path_);
            path_.empty() ? adapterIsMissing() : examineAdapter();
        });
}

void Examination::readObjects(MessageReader& objects) {
    objects.forEachObject([&](std::string_view objectPath) {
        const std::string path(objectPath);
        objects.forEachInterface([&](std::string_view interface) {
            if (interface == deviceInterface) device_ = path;
            if (interface == gattManagerInterface) abilities_[path].hasServiceRegistry = true;
            if (interface == adapterInterface) {
                readAdapter(path, objects.properties());
            } else if (interface == advertisingManagerInterface) {
                const auto free = property<std::uint8_t>(objects.properties(), "SupportedInstances");
                abilities_[path].freeAdvertisements = free;
            } else {
                objects.skip("a{sv}");
            }
        });
    });
}

void Examination::readAdapter(const std::string& path, const Properties& properties) {
    Adapter& adapter = adapters_[path];
    adapter.address = property<std::string>(properties, "Address").value_or("");
    adapter.isPowered = property<bool>(properties, "Powered").value_or(false);
    adapter.isBlocked = property<std::string>(properties, "PowerState") == "off-blocked";
    abilities_[path].roles = property<std::vector<std::string>>(properties, "Roles");
}

// The adapter

void Examination::adapterIsMissing() {
    std::vector<std::string> others;
    for (const auto& [path, adapter] : adapters_) {
        others.push_back(std::string(adapterName(path)) + " (" + adapter.address + ')');
    }
    const std::vector<std::string> inKernel = kernelAdapters();
    if (!others.empty()) {
        add("adapter", Severity::obstacle, "There is no adapter " + context_.adapter + '.',
            "Choose among those that there are: " + joined(others) + '.');
    } else if (!inKernel.empty()) {
        add("adapter", Severity::obstacle, "The kernel has " + joined(inKernel) + ", the service has none.",
            "Look for another program that holds it for itself, and for firmware that it lacks: dmesg | "
            "grep -i bluetooth");
    } else if (readBlockSwitchOfMachine() != BlockSwitch::open) {
        // Many switches of laptops take the adapter off its bus.
        add("adapter", Severity::obstacle, "There is none, and a switch of the machine blocks Bluetooth.",
            remedyFor(Availability::blocked, ""));
    } else {
        add("adapter", Severity::obstacle, "There is none.", remedyFor(Availability::noAdapter, ""));
    }
    end();
}

void Examination::examineAdapter() {
    ask({blueZName, path_, adapterInterface, "GetDiscoveryFilters"}, nullptr,
        [this](MessageReader* filters, const BusError& error) {
            const Abilities& abilities = abilities_[path_];
            examineAdvertisements(filters, error);
            examinePeripheralRole(abilities);
            examineRole(abilities);
            examinePower();
            examineLinks();
        });
}

void Examination::examineAdvertisements(MessageReader* filters, const BusError& error) {
    if (filters && has(*filters, "DuplicateData")) {
        return add("scan", Severity::good, "The service passes on every advertisement that it is told of.");
    }
    if (filters || error.name == unknownMethodError || error.name == unknownObjectError) {
        return add("scan", Severity::obstacle,
                   "The service has no filter that lets repeated advertisements through.",
                   "Install a newer version of the package bluez: 5.47 or later.");
    }
    add("scan", Severity::limitation, "The service does not tell its filters. " + textOf(error));
}

void Examination::examinePeripheralRole(const Abilities& abilities) {
    const char* const advice = "To act as a beacon, use another adapter.";
    if (!abilities.freeAdvertisements || !abilities.hasServiceRegistry) {
        add("beacon role", Severity::limitation, name_ + " cannot act as a beacon.", advice);
    } else if (*abilities.freeAdvertisements == 0) {
        add("beacon role", Severity::limitation,
            name_ + " cannot act as a beacon: it advertises as much as it can for other programs.",
            "End one of them, or use another adapter.");
    } else {
        add("beacon role", Severity::good, name_ + " can act as a beacon.");
    }
}

void Examination::examineRole(const Abilities& abilities) {
    std::string found = name_ + " (" + adapters_[path_].address + ')';
    if (adapters_.size() > 1) found += ", of " + std::to_string(adapters_.size());
    const auto canConnect = [](const std::string& role) { return role.starts_with("central"); };
    if (abilities.roles && std::ranges::none_of(*abilities.roles, canConnect)) {
        return add("adapter", Severity::obstacle, found + ". It cannot listen to Low Energy devices.",
                   "Use another adapter.");
    }
    add("adapter", Severity::good, found + '.');
}

void Examination::examinePower() {
    const Adapter& adapter = adapters_[path_];
    BlockSwitch blockSwitch = readBlockSwitch(name_);
    if (blockSwitch == BlockSwitch::open && adapter.isBlocked) blockSwitch = BlockSwitch::soft;
    if (adapter.isPowered) {
        add("power", Severity::good, name_ + " is on.");
    } else if (blockSwitch != BlockSwitch::open) {
        add("power", Severity::obstacle, name_ + " is off, and cannot be turned on while it is blocked.");
    } else {
        // Among several, bluetoothctl chooses by itself.
        add("power", Severity::obstacle, name_ + " is off.",
            adapters_.size() == 1 ? remedyFor(Availability::poweredOff, "")
                                  : "Turn it on: busctl set-property org.bluez " + path_ +
                                        " org.bluez.Adapter1 Powered b true");
    }
    switch (blockSwitch) {
        case BlockSwitch::open:
            return add("block switch", Severity::good, "It does not block " + name_ + '.');
        case BlockSwitch::soft:
            return add("block switch", Severity::obstacle, name_ + " is blocked by software.",
                       "Unblock it: rfkill unblock bluetooth");
        case BlockSwitch::hard:
            return add("block switch", Severity::obstacle, name_ + " is blocked by a switch of the machine.",
                       "Look for a switch or a key with an aeroplane or a Bluetooth sign, or for a setting "
                       "of the firmware.");
    }
}

// Links

void Examination::examineLinks() {
    if (const auto channel = context_.openChannel(name_)) {
        const bool isKernels = dynamic_cast<const ManagementSocket*>(channel.get()) != nullptr;
        add("links", Severity::good,
            isKernels ? "The kernel tells roughly why they end, and how strong they were up to 3 s ago."
                      : "The controller tells why they end, and how strong they are.");
        return end();
    }
    if (device_.empty()) return linksCannotBeWatched(false);
    // The versions of the service that tell it show so at every device.
    ask({blueZName, device_, introspectableInterface, "Introspect"}, nullptr,
        [this](MessageReader* description, const BusError& /*error*/) {
            constexpr std::string_view signal = "<signal name=\"Disconnected\"";
            linksCannotBeWatched(description && description->string().find(signal) != std::string_view::npos);
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

}  // namespace zobi::platform::bluez
