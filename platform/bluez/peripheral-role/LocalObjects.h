#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bluez/bus/Message.h"
#include "zobi/platform/bluez/PeripheralManager.h"

namespace zobi::platform::bluez {

// Where this side's objects stand on its connection to the bus.
inline constexpr const char* applicationPath = "/application";
inline constexpr const char* advertisementPath = "/advertisement";

/// The objects by which this machine's services are told to the Bluetooth service.
class LocalObjects {
public:
    explicit LocalObjects(std::vector<LocalService> services);

    bool isEmpty() const { return services_.empty(); }

    /// All, in their order.
    const std::vector<ManagedObject>& objects() const { return objects_; }

    /// Null if there is none at this path.
    const ManagedObject* find(std::string_view path) const;

    /// Nothing for a path that is no characteristic's.
    std::optional<GATTPlace> place(std::string_view path) const;

    static std::string characteristicPath(GATTPlace place);

private:
    void add(GATTPlace place, const LocalCharacteristic& characteristic);

    std::vector<LocalService> services_;
    std::vector<ManagedObject> objects_;
    std::map<std::string, GATTPlace, std::less<>> places_;
};

/// An advertisement as the properties of its object.
Properties propertiesOf(const LocalAdvertisement& advertisement);

/// How many bytes an advertisement has, unless the adapter can do extended advertising.
inline constexpr std::size_t packetSize = 31;

/// How many of them all but the name takes.
std::size_t sizeOf(const LocalAdvertisement& advertisement);

}  // namespace zobi::platform::bluez
