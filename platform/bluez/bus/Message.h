#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bluez/bus/Value.h"

namespace zobi::platform::bluez {

struct MessageUnref {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using MessagePointer = std::unique_ptr<sd_bus_message, MessageUnref>;

/// The objects that an object manager reports: of each its path, and of each of its interfaces the name and
/// the properties.
struct ManagedObject {
    std::string path;
    std::vector<std::pair<std::string, Properties>> interfaces;
};

/// Whether a text can be sent: it is UTF-8, without a null character and without noncharacters.
bool canBeSent(std::string_view text);

/// A message that is being written, to be sent by `Bus`. Its arguments are appended in their order.
///
/// Appending throws `std::invalid_argument` for a text that cannot be sent or a path that is none.
class Message {
public:
    explicit Message(MessagePointer message) : message_(std::move(message)) {}

    Message& string(std::string_view text);
    Message& objectPath(std::string_view path);
    Message& bytes(std::span<const std::uint8_t> bytes);
    Message& strings(const std::vector<std::string>& texts);
    Message& variant(const Value& value);
    /// A dictionary of named values (signature a{sv}).
    Message& properties(const Properties& properties);
    /// A dictionary of interfaces with their properties (signature a{sa{sv}}).
    Message& interfaces(const std::vector<std::pair<std::string, Properties>>& interfaces);
    /// A dictionary of objects with their interfaces (signature a{oa{sa{sv}}}).
    Message& objects(const std::vector<ManagedObject>& objects);
    /// Signature a(yyay).
    Message& patterns(const std::vector<AdvertisementPattern>& patterns);

    sd_bus_message* get() const { return message_.get(); }

private:
    void content(const Value& value);
    void basic(char type, const void* value);
    void open(char type, const char* contents);
    void close();

    MessagePointer message_;
};

}  // namespace zobi::platform::bluez
