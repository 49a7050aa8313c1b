#pragma once

// Every public header includes this one. With an older standard, one error says what is wrong. The file of
// the second line does not exist, which ends the compilation before errors follow from every header.
#if __cplusplus < 202002L
#error "ZobiConnectKit needs C++20: compile with -std=c++20 or later"
#include "(nothing more is compiled)"
#endif

#if defined(__GNUC__)
/// Marks a symbol that the shared libraries export; all others are hidden.
#define ZOBI_EXPORT __attribute__((visibility("default")))
#else
#define ZOBI_EXPORT
#endif
