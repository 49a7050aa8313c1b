#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tools/zobiconnect/text/Text.h"

namespace zobi::tool {

/// A mistake in a file. Its message tells the place and the reason.
class Mistake : public std::runtime_error {
public:
    /// @param path empty for the top level.
    Mistake(const std::string& path, const std::string& reason)
        : std::runtime_error((path.empty() ? "top level" : path) + ": " + reason) {}
    explicit Mistake(const std::string& message) : std::runtime_error(message) {}
};

/// Parses a JSON text, and refuses a key that stands twice in one object.
/// @throws Mistake
nlohmann::json parseJson(std::string_view text);

/// As in "beacons[3]".
std::string elementPath(const std::string& path, std::size_t index);

/// One object of a file. What it gives is of the kind that was asked for, or else a `Mistake`. It notes which
/// keys it was asked for: what it has besides is a mistake too.
class CheckedObject {
public:
    using json = nlohmann::json;

    /// @param value must outlive the object.
    CheckedObject(const json& value, std::string path);

    std::string path(const std::string& key) const;

    [[noreturn]] void fail(const std::string& key, const std::string& reason) const;

    /// The value under `key`, or null when the key is missing.
    const json* find(const std::string& key);

    const json& get(const std::string& key);

    std::string text(const std::string& key);

    double number(const std::string& key, double smallest, double largest);

    template <typename Integer>
    Integer integer(const std::string& key, double smallest = std::numeric_limits<Integer>::min(),
                    double largest = std::numeric_limits<Integer>::max()) {
        const json& value = get(key);
        if (!value.is_number_integer()) fail(key, "must be a whole number");
        return static_cast<Integer>(inRange(key, value, smallest, largest));
    }

    const json& list(const std::string& key);

    /// Reads each object of a list.
    void forEach(const std::string& key, const std::function<void(CheckedObject&)>& read);

    /// Reads the object under `key`.
    template <typename Read>
    auto object(const std::string& key, const Read& read) {
        CheckedObject object(get(key), path(key));
        auto result = read(object);
        object.refuseOtherKeys();
        return result;
    }

    /// One of `names`, as its place among them.
    std::size_t oneOf(const std::string& key, const auto& names) {
        const std::string name = text(key);
        const auto found = std::ranges::find(names, name);
        if (found == names.end()) {
            fail(key, '"' + name + "\" is none of " + listed({names.begin(), names.end()}));
        }
        return static_cast<std::size_t>(found - names.begin());
    }

    /// To be called last.
    void refuseOtherKeys() const;

private:
    double inRange(const std::string& key, const json& value, double smallest, double largest) const;

    const json& value_;
    std::string path_;
    std::vector<std::string> known_;
};

}  // namespace zobi::tool
