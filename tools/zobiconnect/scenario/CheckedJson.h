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

/// As in "7 is not a text", or "must be a text" if the value is long.
std::string mismatchText(const nlohmann::json& value, const std::string& wanted);

/// One object of a file. What it gives is of the kind that was asked for, or else a `Mistake`.
class CheckedObject {
public:
    using json = nlohmann::json;

    /// @param value must outlive the object.
    CheckedObject(const json& value, std::string path);

    std::string path(const std::string& key) const;

    [[noreturn]] void fail(const std::string& key, const std::string& reason) const;

    /// Refuses all other keys. To be called first: who misspelt a key is told so, and not that it is missing.
    void allowOnly(const std::vector<std::string>& keys) const;

    bool has(const std::string& key) const { return value_.contains(key); }

    const json& get(const std::string& key) const;

    std::string text(const std::string& key) const;

    double number(const std::string& key, double smallest, double largest) const;

    template <typename Integer>
    Integer integer(const std::string& key, double smallest = std::numeric_limits<Integer>::min(),
                    double largest = std::numeric_limits<Integer>::max()) const {
        const json& value = get(key);
        if (!value.is_number_integer()) fail(key, mismatchText(value, "a whole number"));
        return static_cast<Integer>(inRange(key, value, smallest, largest));
    }

    const json& list(const std::string& key) const;

    /// Reads each object of a list.
    void forEach(const std::string& key, const std::function<void(const CheckedObject&)>& read) const;

    /// Reads the object under `key`.
    template <typename Read>
    auto object(const std::string& key, const Read& read) const {
        return read(CheckedObject(get(key), path(key)));
    }

    /// One of `names`, as its place among them.
    std::size_t oneOf(const std::string& key, const auto& names) const {
        const std::string name = text(key);
        const auto found = std::ranges::find(names, name);
        if (found == names.end()) {
            fail(key, '"' + name + "\" is none of " + listed({names.begin(), names.end()}));
        }
        return static_cast<std::size_t>(found - names.begin());
    }

private:
    double inRange(const std::string& key, const json& value, double smallest, double largest) const;

    const json& value_;
    std::string path_;
};

}  // namespace zobi::tool
