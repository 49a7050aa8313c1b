#include "benchmarks/bluez/PlainClient.h"

#include <poll.h>

#include <string_view>
#include <system_error>

#include "ZobiConnectKit/simulation/PayloadEncoder.h"
#include "benchmarks/bluez/Sender.h"

namespace zobi::bench {

namespace {

int check(int result) {
    if (result < 0) throw std::system_error(-result, std::generic_category(), "the plain client");
    return result;
}

}  // namespace

PlainClient::PlainClient(int socket, std::size_t beacons) {
    for (std::size_t i = 0; i < beacons; ++i) {
        zobi::floor_work::takeIn(zobi::encodePayload(numberedBeacon(i)), nullptr, records_);
    }
    check(sd_bus_new(&bus_));
    check(sd_bus_set_fd(bus_, socket, socket));
    check(sd_bus_set_bus_client(bus_, 1));
    check(sd_bus_start(bus_));
    check(sd_bus_add_match(bus_, nullptr,
                           "type='signal',interface='org.freedesktop.DBus.Properties',"
                           "member='PropertiesChanged',path_namespace='/org/bluez'",
                           &PlainClient::signalCame, this));
    check(sd_bus_add_object(bus_, nullptr, monitorPath, &PlainClient::monitorWasCalled, this));
}

PlainClient::~PlainClient() {
    sd_bus_close_unref(bus_);
}

void PlainClient::takeAll() {
    while (!takeWhatIsThere()) {
        pollfd polled{descriptor(), static_cast<short>(check(sd_bus_get_events(bus_))), 0};
        if (::poll(&polled, 1, -1) < 0) check(-errno);
    }
}

bool PlainClient::takeWhatIsThere() {
    isOver_ = false;
    while (!isOver_ && check(sd_bus_process(bus_, nullptr)) > 0) {
        if (failure_) std::rethrow_exception(failure_);
    }
    return isOver_;
}

int PlainClient::signalCame(sd_bus_message* message, void* self, sd_bus_error* /*error*/) noexcept {
    auto* const client = static_cast<PlainClient*>(self);
    try {
        client->take(message);
    } catch (...) {
        client->failure_ = std::current_exception();
    }
    return 1;
}

int PlainClient::monitorWasCalled(sd_bus_message* call, void* self, sd_bus_error* /*error*/) noexcept {
    ++static_cast<PlainClient*>(self)->answered_;
    return sd_bus_reply_method_return(call, nullptr);
}

void PlainClient::take(sd_bus_message* message) {
    const char* text = nullptr;
    check(sd_bus_message_read_basic(message, 's', static_cast<void*>(&text)));
    check(sd_bus_message_enter_container(message, 'a', "{sv}"));
    while (check(sd_bus_message_enter_container(message, 'e', "sv")) > 0) {
        check(sd_bus_message_read_basic(message, 's', static_cast<void*>(&text)));
        const std::string_view name = text;
        if (name == "RSSI") {
            std::int16_t strength = 0;
            check(sd_bus_message_enter_container(message, 'v', "n"));
            check(sd_bus_message_read_basic(message, 'n', &strength));
            check(sd_bus_message_exit_container(message));
            strengths_ += strength;
        } else if (name == "ServiceData") {
            const void* data = nullptr;
            std::size_t size = 0;
            check(sd_bus_message_enter_container(message, 'v', "a{sv}"));
            check(sd_bus_message_enter_container(message, 'a', "{sv}"));
            check(sd_bus_message_enter_container(message, 'e', "sv"));
            check(sd_bus_message_read_basic(message, 's', static_cast<void*>(&text)));
            check(sd_bus_message_enter_container(message, 'v', "ay"));
            check(sd_bus_message_read_array(message, 'y', &data, &size));
            for (int i = 0; i < 4; ++i) check(sd_bus_message_exit_container(message));
            takePayload({static_cast<const std::uint8_t*>(data), size});
        } else {
            check(sd_bus_message_skip(message, "v"));
        }
        check(sd_bus_message_exit_container(message));
    }
}

void PlainClient::takePayload(std::span<const std::uint8_t> payload) {
    constexpr std::size_t payloadSize = 16;
    if (payload.size() != payloadSize) return;
    const std::int64_t major = payload[7] << 8 | payload[8];
    const std::int64_t minor = payload[9] << 8 | payload[10];
    ++taken_;
    for (const auto& record : records_) {
        if (record->major.integerValue() != major || record->minor.integerValue() != minor) continue;
        record->timestamp = static_cast<std::int64_t>(taken_);
        ++stamped_;
    }
    if (payload.back() == lastCode) isOver_ = true;
}

}  // namespace zobi::bench
