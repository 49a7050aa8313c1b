#include "tools/zobiconnect/beacon/BeaconOptions.h"

#include <array>
#include <cstddef>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "tools/zobiconnect/CommandLine.h"

namespace zobi::tool {

namespace {

/// @param place what the word stands for.
template <typename Integer>
Integer numberAt(const char* place, std::string word) {
    constexpr Integer largest = std::numeric_limits<Integer>::max();
    const std::string mistake = wholeNumber<Integer>(0, largest)(word);
    if (!mistake.empty()) throw CLI::ValidationError(place, mistake);
    return *numberIn<Integer>(word, 0, largest);
}

/// @param words what was given: the beacon in one word or two, and what stands after it.
void readWords(const CLI::App& command, std::vector<std::string> words, bool takesValue,
               BeaconOptions& options) {
    if (const auto dot = words.front().find('.'); dot != std::string::npos) {
        words.insert(words.begin() + 1, words.front().substr(dot + 1));
        words.front().resize(dot);
    }
    const auto major = numberAt<std::uint16_t>("MAJOR", words[0]);
    if (words.size() < 2) throw CLI::RequiredError("MINOR");
    options.identity = {major, numberAt<std::uint16_t>("MINOR", words[1])};
    const std::size_t most = takesValue ? 3 : 2;
    if (words.size() > most) throw CLI::ValidationError(tooManyText(command, words[most]));
    if (words.size() > 2) options.value = numberAt<std::uint8_t>("VALUE", words[2]);
}

}  // namespace

void addBeaconOptions(CLI::App& command, BeaconOptions& options, const std::string& timeoutHelp,
                      const std::string& valueHelp) {
    using Words = std::array<std::optional<std::string>, 3>;
    const auto words = std::make_shared<Words>();
    auto& [major, minor, value] = *words;
    command.add_option("MAJOR", major, "The beacon's major number,")->required()->option_text(" ");
    command.add_option("MINOR", minor, "and its minor number; or both in one word, as in 1.7")
        ->option_text(" ");
    const bool takesValue = !valueHelp.empty();
    if (takesValue) command.add_option("VALUE", value, valueHelp)->option_text(" ");
    command.final_callback([&command, words, takesValue, &options] {
        std::vector<std::string> given;
        for (const auto& word : *words) {
            if (word) given.push_back(*word);
        }
        readWords(command, std::move(given), takesValue, options);
    });
    command.add_option("--timeout", options.timeout, timeoutHelp)
        ->check(isSeconds())
        ->option_text("SECONDS [30]");
    addRadioOptions(command, options.radio);
}

}  // namespace zobi::tool
