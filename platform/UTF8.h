#pragma once

#include <string_view>

#include "zobi/platform/Export.h"

namespace zobi::platform {

/// Whether `text` is UTF-8 throughout: no stray, missing or overlong byte, no surrogate, and nothing above
/// U+10FFFF. An empty text is; a zero character is one like any other.
ZOBI_EXPORT bool isValidUTF8(std::string_view text) noexcept;

}  // namespace zobi::platform
