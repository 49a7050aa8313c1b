#include "tools/zobiconnect/watch/WatchJsonLines.h"

#include "tools/zobiconnect/terminal/Console.h"
#include "tools/zobiconnect/text/Names.h"

namespace zobi::tool {

namespace {

OrderedJson errorJson(const platform::NSError* error) {
    if (!error) return nullptr;
    return {{"domain", error->domain()}, {"code", error->code()}, {"text", error->localizedDescription()}};
}

}  // namespace

WatchJsonLines::WatchJsonLines(const BeaconClient& client, platform::Clock& clock, bool flushes)
    : client_(client), clock_(clock), start_(clock.monotonicTime()), flushes_(flushes) {}

void WatchJsonLines::show(const BeaconEvent& event) {
    using Kind = BeaconEvent::Kind;
    switch (event.kind) {
        case Kind::bluetooth:
            return print("state", {{"state", client_.bluetoothState()},
                                   {"description", radioStateName(client_.bluetoothState())}});
        case Kind::connecting:
            return print("connecting", {{"macAddress", textJson(client_.beacon()->macAddress())}});
        case Kind::connected:
            return print("connected", {{"missing", client_.missingCharacteristics()}});
        case Kind::failed:
            return print("failed", {{"error", errorJson(event.error)}});
        case Kind::lost:
            return print("lost", {{"error", errorJson(event.error)}});
        case Kind::ended:
            return print("ended", {{"error", errorJson(event.error)}});
        case Kind::value:
            return print("value", {{"name", nameOf(*event.quantity)},
                                   {"value", valueJson(client_.latest(*event.quantity))}});
        case Kind::second:
            return;
    }
}

void WatchJsonLines::end(const Totals& totals) {
    const std::chrono::duration<double> elapsed = clock_.monotonicTime() - start_;
    print("summary", {{"seconds", rounded(elapsed.count())},
                      {"connections", totals.connections},
                      {"values", totals.values}});
}

void WatchJsonLines::print(std::string_view event, const OrderedJson& values) const {
    printOut(eventLine(event, clock_.timeIntervalSince1970(), values));
    if (flushes_) flushOut();
}

}  // namespace zobi::tool
