// Reads any bytes as a message of D-Bus's wire format, as values of the types that the radio asks for.

#include <vector>

#include "platform/UTF8.h"
#include "platform/bluez/bus/MessageHeader.h"
#include "support.h"

namespace {

using namespace zobi::platform;
using namespace zobi::platform::bluez;

void requireText(std::string_view text) {
    require(isValidUTF8(text) && text.find('\0') == std::string_view::npos);
}

void readProperties(MessageReader& reader) {
    reader.forEachProperty([&](std::string_view name) {
        requireText(name);
        switch (name.size() % 6) {
            case 0:
                return reader.skipVariant();
            case 1:
                return requireText(reader.variantString().value_or(""));
            case 2:
                return reader.variantForEachString(&requireText);
            case 3:
                reader.variantBytes();
                return;
            case 4:
                return reader.variantForEachProperty(
                    [&](std::string_view /*name*/) { reader.variantInt16(); });
            default:
                reader.variant();
        }
    });
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming): the name is libFuzzer's
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size < MessageHeader::fixedSize) return 0;
    const auto length = MessageHeader::sizeOfMessage({bytes, size});
    if (!length || *length > size) return 0;
    const std::vector<std::uint8_t> message(bytes, bytes + *length);
    const auto header = MessageHeader::of(message);
    if (!header) return 0;
    for (const auto text : {header->path, header->interface, header->member, header->sender})
        requireText(text);
    MessageReader objects = header->reader();
    objects.forEachObject([&](std::string_view path) {
        requireText(path);
        objects.forEachInterface([&](std::string_view /*interface*/) { readProperties(objects); });
    });
    MessageReader changes = header->reader();
    changes.string();
    readProperties(changes);
    changes.forEach("s", [&] { requireText(changes.string()); });
    header->reader().properties();
    header->reader().bytes();
    return 0;
}
