#pragma once

#include <memory>

#include "zobi/platform/Platform.h"

/// Two layers over a platform, which change nothing.
std::unique_ptr<zobi::platform::Platform> inLayers(std::unique_ptr<zobi::platform::Platform> platform);
