// The library in a program that runs another main loop, here GLib's. That loop waits for the library's
// deadline and descriptors, and calls `processPending` when one is due or ready. The same works with Qt, asio
// and sd-event. It ends after three reports.

#include <glib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <utility>
#include <vector>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"
#include "zobi/platform/standard/PollWaiting.h"

namespace {

using zobi::platform::Platform;

/// Drives a platform's loop from GLib's default main loop.
class ForeignLoop {
public:
    explicit ForeignLoop(Platform& platform) : platform_(platform) {
        source_->loop = this;
        watchDescriptors();
        g_source_attach(&source_->base, nullptr);
    }
    ~ForeignLoop() {
        g_source_destroy(&source_->base);
        g_source_unref(&source_->base);
        g_main_loop_unref(mainLoop_);
    }
    ForeignLoop(const ForeignLoop&) = delete;
    ForeignLoop& operator=(const ForeignLoop&) = delete;

    void run() {
        g_main_loop_run(mainLoop_);
        if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
    }

    void stop() { g_main_loop_quit(mainLoop_); }

private:
    /// The memory is GLib's.
    struct Source {
        GSource base;
        ForeignLoop* loop;
    };

    static ForeignLoop& loopOf(GSource* source) { return *reinterpret_cast<Source*>(source)->loop; }

    /// Milliseconds until the library has work to do, or -1 if only a descriptor can bring some.
    gint timeToWork() const {
        const auto deadline = platform_.runLoop().nextDeadline();
        if (!deadline) return -1;
        const auto wait = *deadline - platform_.clock().monotonicTime();
        const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(wait).count();
        return static_cast<gint>(std::clamp<decltype(milliseconds)>(milliseconds, 0, G_MAXINT));
    }

    /// A radio may wait for other descriptors, or other events, each time.
    void watchDescriptors() {
        for (auto* tag : watched_) g_source_remove_unix_fd(&source_->base, tag);
        watched_.clear();
        for (const auto& descriptor : platform_.runLoop().descriptors()) {
            const auto events = static_cast<GIOCondition>(descriptor.events);
            watched_.push_back(g_source_add_unix_fd(&source_->base, descriptor.fd, events));
        }
    }

    static gboolean prepare(GSource* source, gint* timeout) {
        *timeout = loopOf(source).timeToWork();
        return *timeout == 0;
    }

    static gboolean check(GSource* source) {
        const auto isReady = [&](gpointer tag) { return g_source_query_unix_fd(source, tag) != 0; };
        return std::ranges::any_of(loopOf(source).watched_, isReady) || loopOf(source).timeToWork() == 0;
    }

    static gboolean dispatch(GSource* source, GSourceFunc /*callback*/, gpointer /*data*/) {
        ForeignLoop& loop = loopOf(source);
        // GLib is C: an exception must not pass through it, so `run` rethrows it.
        try {
            loop.platform_.runLoop().processPending();
            loop.watchDescriptors();
        } catch (...) {
            loop.failure_ = std::current_exception();
            loop.stop();
        }
        return G_SOURCE_CONTINUE;
    }

    static inline GSourceFuncs functions{prepare, check, dispatch, nullptr, nullptr, nullptr};

    Platform& platform_;
    GMainLoop* mainLoop_ = g_main_loop_new(nullptr, FALSE);
    Source* source_ = reinterpret_cast<Source*>(g_source_new(&functions, sizeof(Source)));
    std::vector<gpointer> watched_;
    std::exception_ptr failure_;
};

class Watcher : public ZOKManagerDelegate {
public:
    explicit Watcher(ForeignLoop& loop) : loop_(loop) {}

    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                    int state) override {
        zobi::monitorIfPoweredOn(*manager, state);
    }

    void zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>& /*manager*/,
                                          const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) override {
        std::printf("%zu in range\n", beacons.size());
        if (++reports_ == 3) loop_.stop();
    }

private:
    ForeignLoop& loop_;
    int reports_ = 0;
};

}  // namespace

int rangeBeaconsWithGLib(Platform& platform) {
    const auto manager = ZOKManager::managerOnPlatform(platform);
    ForeignLoop loop(platform);
    const auto watcher = std::make_shared<Watcher>(loop);
    manager->setDelegate(watcher);
    loop.run();
    return EXIT_SUCCESS;
}

int main() {
    // A loop that is driven from outside waits on descriptors, so that other threads can wake it.
    using zobi::platform::simulation::SimulatedPlatform;
    SimulatedPlatform platform(SimulatedPlatform::Time::real, 0,
                               std::make_unique<zobi::platform::PollWaiting>());
    platform.log().setSink(nullptr);
    platform.world().addBeacon({.major = 1, .minor = 7}).comeIntoRange();
    return rangeBeaconsWithGLib(platform);
}
