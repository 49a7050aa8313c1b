#include "Commands.h"

#include <chrono>
#include <limits>
#include <map>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace air {

namespace {

/// The arguments of a line, from left to right.
class Arguments {
public:
    explicit Arguments(std::vector<std::string> words) : words_(std::move(words)) {}

    std::string text() { return words_.at(next_++); }
    int number(int least, int most) { return parse(text(), least, most, 10); }
    std::uint8_t byte() { return byte(text()); }
    template <typename Value>
    Value oneOf(const std::map<std::string, Value>& values) {
        const std::string word = text();
        if (!values.contains(word)) throw std::invalid_argument(word);
        return values.at(word);
    }
    bool isOn() { return oneOf<bool>({{"on", true}, {"off", false}}); }
    int strength() { return number(-127, unknownStrength); }
    Controller& controller(Air& air) { return air.controller(static_cast<std::size_t>(number(0, 1))); }
    /// Hexadecimal digits, two for each.
    Bytes bytes() {
        const std::string word = text();
        Bytes bytes;
        for (std::size_t i = 0; i < word.size(); i += 2) bytes.push_back(byte(word.substr(i, 2)));
        return bytes;
    }
    /// Six bytes with colons between them, the most significant one first.
    Address address() {
        std::istringstream parts(text());
        Address address{};
        for (auto to = address.rbegin(); to != address.rend(); ++to) {
            std::string part;
            std::getline(parts, part, ':');
            *to = byte(part);
        }
        return address;
    }

private:
    static int parse(const std::string& word, int least, int most, int base) {
        std::size_t end = 0;
        int value = 0;
        try {
            value = std::stoi(word, &end, base);
        } catch (const std::logic_error&) {
            throw std::invalid_argument("no number: " + word);
        }
        if (end != word.size() || value < least || value > most) throw std::invalid_argument(word);
        return value;
    }
    static std::uint8_t byte(const std::string& word) {
        return static_cast<std::uint8_t>(parse(word, 0, 0xFF, 16));
    }

    std::vector<std::string> words_;
    std::size_t next_ = 0;
};

/// The flags, the service 1320 in a complete list, and the payload as data of the service 180A.
Bytes advertisementOf(const Bytes& payload) {
    Writer writer;
    writer.u8(2).u8(0x01).u8(0x06).u8(3).u8(0x03).u16(0x1320);
    writer.u8(static_cast<unsigned>(payload.size()) + 3).u8(0x16).u16(0x180A).append(payload);
    if (payload.size() > 20) throw std::invalid_argument("more than 31 bytes");
    return writer.take();
}

Bytes scanResponseOf(const std::string& name) {
    if (name.size() > 29) throw std::invalid_argument("more than 31 bytes");
    return Writer()
        .u8(static_cast<unsigned>(name.size()) + 1)
        .u8(0x09)
        .append(Bytes(name.begin(), name.end()))
        .take();
}

Beacon& beaconAt(const Address& address, Air& air) {
    const auto beacon = air.beacons.find(address);
    if (beacon == air.beacons.end()) throw std::invalid_argument("no such beacon");
    return beacon->second;
}

struct Command {
    std::size_t argumentCount;
    void (*carryOut)(Arguments& arguments, Air& air, std::string& answer);
};

std::string stateOf(const Air& air, const Controller& controller) {
    std::string text = "controller " + std::to_string(controller.number()) + ':';
    if (controller.advertising().isOn) text += " advertising";
    if (controller.scansActively()) text += " scanning";
    if (controller.link()) text += air.carriesLink() ? " linked" : " link-unheard";
    if (controller.radio.isSilent) text += " silent";
    return text;
}

const std::map<std::string, Command> commands{
    {"state",
     {0,
      [](Arguments&, Air& air, std::string& answer) {
          answer = stateOf(air, air.controller(0)) + "; " + stateOf(air, air.controller(1));
      }}},
    {"reset",
     {0,
      [](Arguments&, Air& air, std::string&) {
          air.isDataCarried = true;
          air.beacons.clear();
          for (const std::size_t number : {0U, 1U}) air.controller(number).radio = Radio();
      }}},
    {"rssi",
     {2,
      [](Arguments& arguments, Air& air, std::string&) {
          Radio& radio = arguments.controller(air).radio;
          radio.strength = arguments.strength();
      }}},
    {"jitter",
     {2,
      [](Arguments& arguments, Air& air, std::string&) {
          Radio& radio = arguments.controller(air).radio;
          radio.jitter = arguments.number(0, 40);
      }}},
    {"interval",
     {2,
      [](Arguments& arguments, Air& air, std::string&) {
          Controller& controller = arguments.controller(air);
          controller.radio.advertisingInterval = std::chrono::milliseconds(arguments.number(0, 60000));
          controller.advertising().due = Clock::now();
      }}},
    {"silent",
     {2,
      [](Arguments& arguments, Air& air, std::string&) {
          Radio& radio = arguments.controller(air).radio;
          radio.isSilent = arguments.isOn();
      }}},
    {"plugged",
     {2,
      [](Arguments& arguments, Air& air, std::string&) {
          Radio& radio = arguments.controller(air).radio;
          radio.isPlugged = arguments.isOn();
      }}},
    {"acl", {1, [](Arguments& arguments, Air& air, std::string&) { air.isDataCarried = arguments.isOn(); }}},
    {"lose",
     {2,
      [](Arguments& arguments, Air& air, std::string&) {
          const std::uint8_t first = arguments.byte();
          const std::uint8_t second = arguments.byte();
          air.controller(0).linkEnds(first);
          air.controller(1).linkEnds(second);
      }}},
    {"estfail",
     {2,
      [](Arguments& arguments, Air& air, std::string&) {
          Radio& radio = arguments.controller(air).radio;
          radio.unnoticedLinks = static_cast<unsigned>(arguments.number(0, std::numeric_limits<int>::max()));
      }}},
    {"connerr",
     {2,
      [](Arguments& arguments, Air& air, std::string&) {
          Radio& radio = arguments.controller(air).radio;
          radio.attemptError = arguments.byte();
      }}},
    {"dedup",
     {2,
      [](Arguments& arguments, Air& air, std::string&) {
          Radio& radio = arguments.controller(air).radio;
          radio.duplicateFilter = arguments.oneOf<DuplicateFilter>({{"none", DuplicateFilter::none},
                                                                    {"addr", DuplicateFilter::sameAddress},
                                                                    {"data", DuplicateFilter::sameData}});
      }}},
    {"beacon",
     {4,
      [](Arguments& arguments, Air& air, std::string&) {
          const Address address = arguments.address();
          const std::chrono::milliseconds interval(arguments.number(20, 60000));
          const Bytes scanResponse = scanResponseOf(arguments.text());
          air.beacons[address] = {interval, scanResponse, advertisementOf(arguments.bytes())};
      }}},
    {"press",
     {3,
      [](Arguments& arguments, Air& air, std::string&) {
          Beacon& beacon = beaconAt(arguments.address(), air);
          beacon.pressedUntil = Clock::now() + std::chrono::milliseconds(arguments.number(0, 60000));
          beacon.pressedData = advertisementOf(arguments.bytes());
      }}},
    {"remove",
     {1,
      [](Arguments& arguments, Air& air, std::string&) {
          const Address address = arguments.address();
          beaconAt(address, air);
          air.beacons.erase(address);
      }}},
    {"advert", {6, [](Arguments& arguments, Air& air, std::string&) {
                    Controller& controller = arguments.controller(air);
                    Report report;
                    report.kind = static_cast<std::uint8_t>(arguments.number(0, 4));
                    report.sender.type = static_cast<std::uint8_t>(arguments.number(0, 1));
                    report.sender.address = arguments.address();
                    report.strength = arguments.strength();
                    report.data = arguments.bytes();
                    if (report.data.size() > 31) throw std::invalid_argument("more than 31 bytes");
                    controller.hear(report);
                }}}};

}  // namespace

std::string carryOut(const std::string& line, Air& air) {
    std::istringstream stream(line);
    std::string name;
    stream >> name;
    std::vector<std::string> words;
    for (std::string word; stream >> word;) words.push_back(word);
    const auto command = commands.find(name);
    if (command == commands.end()) return "error no such command: " + name;
    if (words.size() != command->second.argumentCount) {
        return "error " + name + " has " + std::to_string(command->second.argumentCount) + " arguments";
    }
    try {
        std::string answer;
        Arguments arguments(std::move(words));
        command->second.carryOut(arguments, air, answer);
        return answer.empty() ? "ok" : "ok " + answer;
    } catch (const std::invalid_argument& error) {
        return std::string("error ") + error.what();
    }
}

}  // namespace air
