#include "platform/UTF8.h"

#include <cstddef>
#include <cstdint>

namespace zobi::platform {

bool isValidUTF8(std::string_view text) noexcept {
    std::size_t index = 0;
    while (index < text.size()) {
        const auto lead = static_cast<unsigned char>(text[index++]);
        if (lead < 0x80) continue;

        std::size_t following = 0;
        std::uint32_t character = 0;
        // What takes fewer bytes than it was given is overlong.
        std::uint32_t smallest = 0;
        if ((lead & 0xE0) == 0xC0) {
            following = 1;
            character = lead & 0x1F;
            smallest = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            following = 2;
            character = lead & 0x0F;
            smallest = 0x800;
        } else if ((lead & 0xF8) == 0xF0) {
            following = 3;
            character = lead & 0x07;
            smallest = 0x1'0000;
        } else {
            return false;
        }

        if (following > text.size() - index) return false;
        for (; following > 0; --following) {
            const auto byte = static_cast<unsigned char>(text[index++]);
            if ((byte & 0xC0) != 0x80) return false;
            character = (character << 6) | (byte & 0x3F);
        }
        const bool isSurrogate = character >= 0xD800 && character <= 0xDFFF;
        if (character < smallest || isSurrogate || character > 0x10'FFFF) return false;
    }
    return true;
}

}  // namespace zobi::platform
