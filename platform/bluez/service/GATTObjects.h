#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "zobi/platform/CBUUID.h"

namespace zobi::platform::bluez {

/// A characteristic in the GATT table of a device.
struct RemoteCharacteristic {
    std::string path;
    CBUUID uuid;
};

/// A service in that table. Several may have the same UUID: the path tells them apart.
struct RemoteService {
    std::string path;
    CBUUID uuid;
    std::vector<RemoteCharacteristic> characteristics;
};

/// The GATT objects that BlueZ exports, of all devices. They stay when a link ends, and BlueZ does not signal
/// them again when the next one is up. Main thread only.
class GATTObjects {
public:
    enum class Kind : std::uint8_t { service, characteristic };

    void add(std::string_view path, Kind kind, const CBUUID& uuid);
    void remove(std::string_view path);
    /// Removes what is below a device.
    void removeBelow(std::string_view device);
    void clear() { objects_.clear(); }

    /// The table of a device, in the order of its handles; empty if BlueZ exports none.
    std::vector<RemoteService> tableOf(std::string_view device) const;

private:
    struct Object {
        Kind kind;
        CBUUID uuid;
    };
    /// By path. Paths end in handles of four digits, so this is the order of the handles, and a service comes
    /// before its characteristics.
    using Objects = std::map<std::string, Object, std::less<>>;

    Objects objects_;
};

}  // namespace zobi::platform::bluez
