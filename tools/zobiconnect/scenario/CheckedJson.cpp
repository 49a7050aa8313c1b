#include "tools/zobiconnect/scenario/CheckedJson.h"

#include <memory>
#include <set>
#include <utility>

namespace zobi::tool {

using nlohmann::json;

namespace {

std::string joinedPath(const std::string& path, const std::string& key) {
    return path.empty() ? key : path + '.' + key;
}

/// Follows the parser, which would keep one of two values under the same key and say nothing.
class RepeatedKeyCheck {
public:
    bool operator()(int depth, json::parse_event_t event, const json& parsed) {
        // Far more than a scenario needs.
        constexpr int deepest = 50;
        switch (event) {
            case json::parse_event_t::object_start:
            case json::parse_event_t::array_start:
                if (depth > deepest) throw Mistake(pathHere(), "nested too deeply");
                levels_.push_back({pathHere(), event == json::parse_event_t::array_start, 0, "", {}});
                break;
            case json::parse_event_t::key:
                levels_.back().key = parsed.get<std::string>();
                if (!levels_.back().keys.insert(levels_.back().key).second) {
                    throw Mistake(pathHere(), "the key is repeated");
                }
                break;
            case json::parse_event_t::object_end:
            case json::parse_event_t::array_end:
                levels_.pop_back();
                [[fallthrough]];
            case json::parse_event_t::value:
                if (!levels_.empty()) ++levels_.back().index;
                break;
        }
        return true;
    }

    /// What the parser is reading.
    std::string pathHere() const {
        if (levels_.empty()) return "";
        const Level& level = levels_.back();
        return level.isList ? elementPath(level.path, level.index) : joinedPath(level.path, level.key);
    }

private:
    struct Level {
        std::string path;
        bool isList;
        std::size_t index;
        std::string key;
        std::set<std::string> keys;
    };

    std::vector<Level> levels_;
};

/// The parser's message without its own name for the error.
std::string parserMessage(const json::exception& error) {
    std::string_view message = error.what();
    for (const std::string_view introduction : {"] ", "parse error at ", "parse error: "}) {
        const auto found = message.find(introduction);
        if (found != std::string_view::npos) message.remove_prefix(found + introduction.size());
    }
    return std::string(message);
}

}  // namespace

json parseJson(std::string_view text) {
    // Shared, for the parser copies it.
    const auto check = std::make_shared<RepeatedKeyCheck>();
    try {
        return json::parse(text, [check](int depth, json::parse_event_t event, const json& parsed) {
            return (*check)(depth, event, parsed);
        });
    } catch (const json::out_of_range&) {
        // The one error of the parser that does not tell where.
        throw Mistake(check->pathHere(), "the number is too large");
    } catch (const json::exception& error) {
        throw Mistake(parserMessage(error));
    }
}

std::string elementPath(const std::string& path, std::size_t index) {
    return path + '[' + std::to_string(index) + ']';
}

std::string mismatchText(const json& value, const std::string& wanted) {
    constexpr std::size_t longest = 40;
    const std::string given = value.dump();
    return given.size() <= longest ? given + " is not " + wanted : "must be " + wanted;
}

CheckedObject::CheckedObject(const json& value, std::string path) : value_(value), path_(std::move(path)) {
    if (!value.is_object()) throw Mistake(path_, mismatchText(value, "an object"));
}

std::string CheckedObject::path(const std::string& key) const {
    return joinedPath(path_, key);
}

void CheckedObject::fail(const std::string& key, const std::string& reason) const {
    throw Mistake(path(key), reason);
}

void CheckedObject::allowOnly(const std::vector<std::string>& keys) const {
    for (const auto& [key, value] : value_.items()) {
        if (std::ranges::find(keys, key) == keys.end()) {
            fail(key, "unknown key; known here: " + listed(keys));
        }
    }
}

const json& CheckedObject::get(const std::string& key) const {
    const auto found = value_.find(key);
    if (found == value_.end()) fail(key, "missing");
    return *found;
}

std::string CheckedObject::text(const std::string& key) const {
    const json& value = get(key);
    if (!value.is_string()) fail(key, mismatchText(value, "a text"));
    return value;
}

double CheckedObject::number(const std::string& key, double smallest, double largest) const {
    const json& value = get(key);
    if (!value.is_number()) fail(key, mismatchText(value, "a number"));
    return inRange(key, value, smallest, largest);
}

const json& CheckedObject::list(const std::string& key) const {
    const json& value = get(key);
    if (!value.is_array()) fail(key, mismatchText(value, "a list"));
    return value;
}

void CheckedObject::forEach(const std::string& key,
                            const std::function<void(const CheckedObject&)>& read) const {
    std::size_t index = 0;
    for (const json& value : list(key)) read(CheckedObject(value, elementPath(path(key), index++)));
}

double CheckedObject::inRange(const std::string& key, const json& value, double smallest,
                              double largest) const {
    const auto number = value.get<double>();
    if (number < smallest || number > largest) {
        fail(key, value.dump() + " is not from " + numberText(smallest) + " to " + numberText(largest));
    }
    return number;
}

}  // namespace zobi::tool
