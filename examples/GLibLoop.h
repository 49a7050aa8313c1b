#pragma once

#include <glib.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>
#include <vector>

#include "zobi/platform/Platform.h"

/// Drives a platform's loop from GLib's default main loop. That loop waits for the library's deadline and
/// descriptors, and calls `processPending` when one is due or ready.
class GLibLoop {
public:
    explicit GLibLoop(zobi::platform::Platform& platform) : platform_(platform) {
        source_->loop = this;
        watchDescriptors();
        g_source_attach(&source_->base, nullptr);
    }
    ~GLibLoop() {
        g_source_destroy(&source_->base);
        g_source_unref(&source_->base);
        g_main_loop_unref(mainLoop_);
    }
    GLibLoop(const GLibLoop&) = delete;
    GLibLoop& operator=(const GLibLoop&) = delete;

    void run() {
        g_main_loop_run(mainLoop_);
        if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
    }

    void stop() { g_main_loop_quit(mainLoop_); }

private:
    /// The memory is GLib's.
    struct Source {
        GSource base;
        GLibLoop* loop;
    };

    static GLibLoop& loopOf(GSource* source) { return *reinterpret_cast<Source*>(source)->loop; }

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
        GLibLoop& loop = loopOf(source);
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

    zobi::platform::Platform& platform_;
    GMainLoop* mainLoop_ = g_main_loop_new(nullptr, FALSE);
    Source* source_ = reinterpret_cast<Source*>(g_source_new(&functions, sizeof(Source)));
    std::vector<gpointer> watched_;
    std::exception_ptr failure_;
};
