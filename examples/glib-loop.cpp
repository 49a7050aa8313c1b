// The library inside a program that has a loop of its own, here GLib's: that loop waits for what the
// library's loop would wait for, and lets it work when there is something to do. Qt, asio and sd-event are
// driven alike. It ends after three reports.

#include <glib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>
#include <vector>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "platform/simulation/SimulatedPlatform.h"
#include "platform/standard/PollWaiting.h"

namespace {

using platform::Platform;

GMainLoop* mainLoop = nullptr;
GSource* loopSource = nullptr;
std::vector<gpointer> watchedDescriptors;
std::exception_ptr failure;

/// Milliseconds until the library has work to do, or -1 if only a descriptor can bring some.
gint timeToWork() {
    const auto deadline = Platform::current().runLoop().nextDeadline();
    if (!deadline) return -1;
    const auto wait = *deadline - Platform::current().clock().monotonicTime();
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(wait).count();
    return static_cast<gint>(std::clamp<decltype(milliseconds)>(milliseconds, 0, G_MAXINT));
}

/// A radio may wait for other descriptors, or other events, each time.
void watchDescriptors() {
    for (auto* tag : watchedDescriptors) g_source_remove_unix_fd(loopSource, tag);
    watchedDescriptors.clear();
    for (const auto& descriptor : Platform::current().runLoop().descriptors()) {
        watchedDescriptors.push_back(
            g_source_add_unix_fd(loopSource, descriptor.fd, static_cast<GIOCondition>(descriptor.events)));
    }
}

gboolean prepare(GSource* /*source*/, gint* timeout) {
    *timeout = timeToWork();
    return *timeout == 0;
}

gboolean check(GSource* source) {
    const bool isReady = std::ranges::any_of(
        watchedDescriptors, [&](gpointer tag) { return g_source_query_unix_fd(source, tag) != 0; });
    return isReady || timeToWork() == 0;
}

gboolean dispatch(GSource* /*source*/, GSourceFunc /*callback*/, gpointer /*data*/) {
    // GLib is C, and no exception may pass through it: one is kept, and thrown again on the other side.
    try {
        Platform::current().runLoop().processPending();
        watchDescriptors();
    } catch (...) {
        failure = std::current_exception();
        g_main_loop_quit(mainLoop);
    }
    return G_SOURCE_CONTINUE;
}

class Watcher : public ZOKManagerDelegate {
public:
    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                    int state) override {
        if (state == static_cast<int>(platform::CBManagerState::poweredOn)) manager->startMonitoring();
    }

    void zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>& /*manager*/,
                                          const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) override {
        std::printf("%zu in range\n", beacons.size());
        if (++reports_ == 3) g_main_loop_quit(mainLoop);
    }

private:
    int reports_ = 0;
};

}  // namespace

int main() {
    // A loop that is driven from outside waits on descriptors, so that other threads can wake it.
    auto simulated = std::make_unique<platform::simulation::SimulatedPlatform>(
        platform::StandardPlatform::Time::real, 0, std::make_unique<platform::PollWaiting>());
    simulated->log().setSink(nullptr);
    simulated->world().addBeacon({.major = 1, .minor = 7}).comeIntoRange();
    Platform::install(std::move(simulated));

    const auto watcher = std::make_shared<Watcher>();
    ZOKManager::shared()->setDelegate(watcher);

    mainLoop = g_main_loop_new(nullptr, FALSE);
    GSourceFuncs functions{prepare, check, dispatch, nullptr, nullptr, nullptr};
    loopSource = g_source_new(&functions, sizeof(GSource));
    watchDescriptors();
    g_source_attach(loopSource, nullptr);
    g_main_loop_run(mainLoop);
    g_source_destroy(loopSource);
    g_source_unref(loopSource);
    g_main_loop_unref(mainLoop);
    if (failure) std::rethrow_exception(failure);
}
