#include "platform/bluez/diagnosis/Listening.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/bluez/controller/HCI.h"
#include "zobi/platform/bluez/BlueZPlatform.h"

namespace zobi::platform::bluez {

namespace {

// Bus, service and adapter are found in milliseconds, on a busy machine in a second or two.
constexpr double patience = 10;
// The service restarts its scan every 10.3 s to 10.5 s, and a strict controller reports each device once per
// scan.
constexpr double scanLength = 10.3;
constexpr double longestScan = 12;

double secondsOf(std::chrono::nanoseconds time) {
    return std::chrono::duration<double>(time).count();
}

std::string text(double seconds) {
    const auto tenths = std::llround(seconds * 10);
    return std::to_string(tenths / 10) + '.' + std::to_string(tenths % 10) + " s";
}

std::string counted(std::uint64_t count, const char* noun) {
    return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

/// The shortest mean gap of the devices that were heard over a whole scan or longer; nothing if there is
/// none.
std::optional<double> shortestGap(const Hearing& hearing) {
    std::optional<double> shortest;
    for (const Hearing::Device& device : hearing.devices) {
        const double span = device.meanGap * static_cast<double>(device.advertisements - 1);
        if (span >= scanLength - 1 && (!shortest || device.meanGap < *shortest)) shortest = device.meanGap;
    }
    return shortest;
}

std::string controllerText(const Hearing& hearing) {
    if (!hearing.scanSwitches) return "What the controller does cannot be seen.";
    return "The controller was told " + counted(*hearing.scanSwitches, "time") + " to begin or end a scan.";
}

}  // namespace

Hearing::Verdict verdictOn(const Hearing& hearing) {
    using Verdict = Hearing::Verdict;
    using Kind = RadioCondition::Kind;
    if (hearing.condition.kind != Kind::poweredOn && hearing.condition.kind != Kind::unknown)
        return Verdict::unusable;
    if (hearing.silence >= longestScan && hearing.scanSwitchesInSilence == 0U) return Verdict::deaf;
    if (hearing.advertisements == 0)
        return hearing.scanSwitches.value_or(0) > 0 ? Verdict::empty : Verdict::unclear;
    // Of a controller that filters duplicates, several in one scan come only where the scan is restarted.
    const auto isSteady = [](const Hearing::Device& device) {
        return device.advertisements >= 4 && device.meanGap <= scanLength / 2;
    };
    if (std::ranges::any_of(hearing.devices, isSteady)) return Verdict::fine;
    return shortestGap(hearing) ? Verdict::throttled : Verdict::unclear;
}

std::vector<Finding> findingsOf(const Hearing& hearing) {
    using Severity = Finding::Severity;
    std::vector<Finding> findings;
    const std::string figures = counted(hearing.devices.size(), "device") + " and " +
                                counted(hearing.advertisements, "advertisement") + " were heard in " +
                                text(hearing.seconds) + ". ";
    const auto add = [&](const char* subject, Severity severity, std::string found, std::string advice = {}) {
        findings.push_back({subject, severity, std::move(found), std::move(advice)});
    };
    switch (hearing.verdict) {
        case Hearing::Verdict::fine:
            add("air", Severity::good, figures + "Devices are heard as often as they advertise.");
            break;
        case Hearing::Verdict::throttled:
            add("air", Severity::limitation,
                figures + "None was heard more often than every " +
                    text(shortestGap(hearing).value_or(scanLength)) +
                    " on average: the controller reports each about once per scan.",
                "Look at the advice on the scan. If all is well there, bring a beacon that advertises each "
                "second: here may be none that does.");
            break;
        case Hearing::Verdict::empty:
            add("air", Severity::limitation,
                figures + controllerText(hearing) + " It scans, and nothing here advertises.",
                "Bring a beacon near, and see that no other program has a link to it.");
            break;
        case Hearing::Verdict::deaf:
            add("air", Severity::obstacle,
                figures + "For the last " + text(hearing.silence) +
                    " there was nothing, and the controller was not told to scan, though the service says "
                    "that it scans.",
                "Restart the service: systemctl restart bluetooth");
            break;
        case Hearing::Verdict::unclear:
            add("air", Severity::limitation,
                figures + controllerText(hearing) +
                    (hearing.advertisements == 0
                         ? " Nothing tells whether nothing advertises here or nothing is heard."
                         : " That is too little to tell how often devices are heard."),
                "Listen for 30 s or longer, with a beacon near. If it is not heard, restart the service: "
                "systemctl restart bluetooth");
            break;
        case Hearing::Verdict::unusable:
            add("air", Severity::obstacle, figures + hearing.condition.text, hearing.condition.remedy);
            break;
    }
    for (const auto& [address, name] : hearing.linked) {
        std::string found = address;
        if (!name.empty()) found.append(" (").append(name).append(")");
        found += " is linked to this machine, and was not heard: most devices do not advertise meanwhile.";
        add("link", Severity::limitation, std::move(found),
            "If no program here uses the link, end it: bluetoothctl disconnect " + address);
    }
    return findings;
}

// Listening

void Listening::start() {
    service_ = std::make_shared<BlueZService>(context_, weak_from_this());
    central_ = std::make_shared<BlueZCentral>(*context_, weak_from_this());
    timer_ = context_->after(patience, shared_from_this(), &Listening::end);
    service_->start();
    central_->start();
}

void Listening::conditionChanged() {
    if (ended_) return;
    const bool isReady = service_->isPoweredOn() && central_->state() == CBManagerState::poweredOn;
    if (!begun_) {
        if (isReady) beginScan();
    } else if (!isReady) {
        end();
    }
}

void Listening::beginScan() {
    channel_ = context_->openChannel(service_->adapterName());
    begun_ = lastHeard_ = now();
    switchesWhenBegun_ = switchesWhenHeard_ = scanSwitches();
    timer_->invalidate();
    timer_ = context_->after(seconds_, shared_from_this(), &Listening::end);
    central_->scanForPeripheralsWithServicesOptions({}, {.allowDuplicates = true});
}

void Listening::end() {
    if (ended_) return;
    ended_ = now();
    timer_->invalidate();
    if (const auto onEnd = std::exchange(onEnd_, nullptr)) onEnd();
}

std::optional<unsigned> Listening::scanSwitches() const {
    return channel_ ? channel_->scanSwitches() : std::nullopt;
}

void Listening::deviceDidAppear(const Device& device) {
    if (device.isConnected) linked_[textOf(device.address)] = device.name;
}

void Listening::deviceDidChange(const Device& device, const DeviceChange& change) {
    const std::string address = textOf(device.address);
    if (!device.isConnected) {
        linked_.erase(address);
    } else {
        linked_[address] = device.name;
    }
    if (!begun_ || ended_ || !change.isSighting()) return;
    Heard& heard = heard_[address];
    const Time gap = now() - (heard.advertisements == 0 ? *begun_ : heard.last);
    lastHeard_ = heard.last = now();
    switchesWhenHeard_ = scanSwitches();
    if (++heard.advertisements == 1) heard.first = heard.last;
    heard.longestGap = std::max(heard.longestGap, gap);
    if (!device.name.empty()) heard.name = device.name;
    if (change.rssi && *change.rssi != unknownRSSI) heard.rssi = *change.rssi;
}

void Listening::deviceDidVanish(const Device& device) {
    linked_.erase(textOf(device.address));
}

Hearing Listening::hearing() const {
    Hearing hearing;
    hearing.condition = service_->condition();
    if (begun_) {
        const Time end = ended_.value_or(now());
        hearing.seconds = secondsOf(end - *begun_);
        hearing.silence = secondsOf(end - lastHeard_);
        if (const auto switches = scanSwitches()) {
            hearing.scanSwitches = *switches - switchesWhenBegun_.value_or(0);
            hearing.scanSwitchesInSilence = *switches - switchesWhenHeard_.value_or(0);
        }
        for (const auto& [address, heard] : heard_) {
            const auto gaps = static_cast<double>(std::max<std::uint64_t>(heard.advertisements - 1, 1));
            hearing.advertisements += heard.advertisements;
            hearing.devices.push_back({.address = address,
                                       .name = heard.name,
                                       .advertisements = heard.advertisements,
                                       .meanGap = secondsOf(heard.last - heard.first) / gaps,
                                       .longestGap = secondsOf(std::max(heard.longestGap, end - heard.last)),
                                       .rssi = heard.rssi});
        }
        std::ranges::stable_sort(hearing.devices, std::greater(), &Hearing::Device::advertisements);
        for (const auto& [address, name] : linked_) {
            if (!heard_.contains(address)) hearing.linked.push_back({address, name});
        }
    }
    hearing.verdict = verdictOn(hearing);
    hearing.findings = findingsOf(hearing);
    return hearing;
}

Hearing listen(BlueZPlatform& platform, double seconds) {
    RunLoop& runLoop = platform.runLoop();
    const auto listening =
        std::make_shared<Listening>(platform.context(), seconds, [&runLoop] { runLoop.stop(); });
    runLoop.dispatchAsync([listening] { listening->start(); });
    runLoop.run();
    return listening->hearing();
}

}  // namespace zobi::platform::bluez
