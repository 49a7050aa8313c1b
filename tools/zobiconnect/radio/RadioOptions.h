#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "zobi/platform/Platform.h"

namespace zobi::tool {

/// The options that choose the radio, and what it hears.
struct RadioOptions {
    std::optional<std::string> radio;
    std::optional<std::string> adapter;
    std::optional<std::size_t> simulate;
    std::optional<std::string> scenario;
    std::optional<std::uint64_t> seed;
    bool virtualTime = false;
    bool log = false;
    /// Whether the machine's radio is waited for when it cannot be used yet. Not among the options that
    /// `addRadioOptions` adds.
    bool wait = false;

    /// Names what is listened with, for people.
    std::string caption() const;
};

/// Adds them to a command. If it has --for, virtual time requires that.
/// @param options must outlive the command.
void addRadioOptions(CLI::App& command, RadioOptions& options);

/// A platform, and the radio on it.
struct Radio {
    std::unique_ptr<platform::Platform> platform;
    /// Sets going what the radio hears. Called once, when the platform is installed and the application has
    /// started, so that it is told all that happens.
    std::function<void()> play;
};

/// @param patience how many seconds the machine's radio has to tell its state; absent for as long as it
///     takes.
/// @throws CLI::ValidationError for options that do not go together, UsageError for a scenario with a
///     mistake, Failure when the machine's radio cannot be used.
Radio makeRadio(const RadioOptions& options, std::optional<double> patience);

}  // namespace zobi::tool
