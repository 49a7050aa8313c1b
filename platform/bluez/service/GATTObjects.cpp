#include "platform/bluez/service/GATTObjects.h"

#include <algorithm>

namespace zobi::platform::bluez {

namespace {

/// What is below `path`, in a map by paths.
template <typename Objects>
auto rangeBelow(Objects& objects, std::string_view path) {
    const std::string prefix = std::string(path) + '/';
    const auto begin = objects.lower_bound(prefix);
    const auto end = std::find_if_not(begin, objects.end(),
                                      [&](const auto& entry) { return entry.first.starts_with(prefix); });
    return std::pair(begin, end);
}

}  // namespace

void GATTObjects::add(std::string_view path, Kind kind, const CBUUID& uuid) {
    objects_.insert_or_assign(std::string(path), Object{kind, uuid});
}

void GATTObjects::remove(std::string_view path) {
    const auto found = objects_.find(path);
    if (found != objects_.end()) objects_.erase(found);
}

void GATTObjects::removeBelow(std::string_view device) {
    const auto [begin, end] = rangeBelow(objects_, device);
    objects_.erase(begin, end);
}

std::vector<RemoteService> GATTObjects::tableOf(std::string_view device) const {
    std::vector<RemoteService> table;
    const auto [begin, end] = rangeBelow(objects_, device);
    for (auto object = begin; object != end; ++object) {
        const auto& [path, content] = *object;
        if (content.kind == Kind::service) {
            table.push_back({path, content.uuid, {}});
        } else if (!table.empty() && path.starts_with(table.back().path + '/')) {
            table.back().characteristics.push_back({path, content.uuid});
        }
    }
    return table;
}

}  // namespace zobi::platform::bluez
