#pragma once

/// Marks what the shared libraries export; everything else in them is hidden.
#if defined(__GNUC__)
#define ZOK_EXPORT __attribute__((visibility("default")))
#else
#define ZOK_EXPORT
#endif
