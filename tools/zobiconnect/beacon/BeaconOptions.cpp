#include "tools/zobiconnect/beacon/BeaconOptions.h"

#include <limits>

#include "tools/zobiconnect/options/OptionChecks.h"

namespace zobi::tool {

void addBeaconOptions(CLI::App& command, BeaconOptions& options, const std::string& timeoutHelp) {
    const CLI::Validator isIdentity = isNumberUpTo(std::numeric_limits<std::uint16_t>::max());
    command.add_option("MAJOR", options.major, "The beacon's major number,")
        ->required()
        ->check(isIdentity)
        ->option_text(" ");
    command.add_option("MINOR", options.minor, "and its minor number")
        ->required()
        ->check(isIdentity)
        ->option_text(" ");
    command.add_option("--timeout", options.timeout, timeoutHelp)
        ->check(isSeconds())
        ->option_text("SECONDS [30]");
    addRadioOptions(command, options.radio);
}

}  // namespace zobi::tool
