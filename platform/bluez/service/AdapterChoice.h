#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace zobi::platform::bluez {

/// An adapter, as far as it matters which one is used.
struct Adapter {
    std::string address;
    bool isPowered = false;
    bool isBlocked = false;
    /// For anybody, other programs included.
    bool isDiscovering = false;
    /// The service takes advertisement monitors for it.
    bool takesMonitors = false;

    friend bool operator==(const Adapter&, const Adapter&) = default;
};

/// By their paths.
using Adapters = std::map<std::string, Adapter, std::less<>>;

/// The path of the adapter that is used. One that is powered on goes before others.
/// @param wanted its name or its address, of any case; empty for any.
/// @returns a view into `adapters`; empty if there is none.
std::string_view chosenAdapter(const Adapters& adapters, std::string_view wanted);

/// "hci0", for a path that ends in it.
std::string_view adapterName(std::string_view path);

}  // namespace zobi::platform::bluez
