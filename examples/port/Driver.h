// The driver of an imaginary radio, which RadioPlatform.h is written against. Each call returns at once. What
// the driver tells comes from tasks of the run loop.

#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "zobi/platform/CBCentralManager.h"
#include "zobi/platform/RunLoop.h"
#include "zobi/platform/standard/DiscoveredServices.h"

struct Service {
    zobi::platform::CBUUID uuid;
    std::vector<zobi::platform::CBUUID> characteristics;
};

enum class LinkEnd { host, timeout, peer };

/// Receives what happens to one attempt to connect, and to the link that it makes.
class ConnectionEvents {
public:
    virtual ~ConnectionEvents() = default;
    virtual void connected(std::vector<Service> services) = 0;
    virtual void connectionFailed() = 0;
    virtual void disconnected(LinkEnd end) = 0;
    virtual void notified(zobi::platform::GATTPlace place, std::span<const std::uint8_t> value) = 0;
};

/// Receives what happens to the radio. Its state is told at the start, and whenever it changes.
class DriverEvents {
public:
    virtual ~DriverEvents() = default;
    virtual void powerChanged(bool isOn) = 0;
    virtual void heard(std::uint64_t address, std::span<const zobi::platform::CBUUID> advertisedServices,
                       const zobi::platform::CBAdvertisementData& data, std::optional<int> rssi) = 0;
};

class Driver {
public:
    /// Receives the error code of the peripheral, 0 for success, and what was read.
    using Answer = std::function<void(int error, std::span<const std::uint8_t> value)>;

    virtual ~Driver() = default;
    virtual void scan(bool isOn) = 0;
    /// Tries until it succeeds, fails or is called off.
    virtual void connect(std::uint64_t address, std::weak_ptr<ConnectionEvents> events) = 0;
    /// Calls off the attempt, of which nothing more is told, or ends the link, which is told when it is down,
    /// and before the next link is up.
    virtual void disconnect(std::uint64_t address) = 0;
    virtual void read(std::uint64_t address, zobi::platform::GATTPlace place, Answer answer) = 0;
    virtual void write(std::uint64_t address, zobi::platform::GATTPlace place,
                       std::span<const std::uint8_t> value, bool isAnswered, Answer answer) = 0;
    virtual void subscribe(std::uint64_t address, zobi::platform::GATTPlace place, bool enabled,
                           Answer answer) = 0;
    virtual void readRSSI(std::uint64_t address, std::function<void(int dBm)> answer) = 0;
};

/// Opens the driver for one client.
std::shared_ptr<Driver> openDriver(zobi::platform::RunLoop& loop, std::weak_ptr<DriverEvents> events);
