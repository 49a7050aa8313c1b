#pragma once

#include <memory>

#include "zobi/platform/Export.h"
#include "zobi/platform/Platform.h"
#include "zobi/platform/standard/ForwardingCentral.h"

namespace zobi::platform {

/// Another platform, which it owns, and to which it forwards every call. A derived class overrides
/// `makeCentralManager`, so that a `ForwardingCentral` of its own stands between each central manager and its
/// delegate:
///
///     std::shared_ptr<CBCentralManager> makeCentralManager(
///         std::weak_ptr<CBCentralManagerDelegate> delegate) override {
///         return insert(std::make_shared<MyCentral>(std::move(delegate)));
///     }
///
/// A forwarding platform may wrap another.
class ZOBI_EXPORT ForwardingPlatform : public Platform {
public:
    /// @param wrapped not null.
    explicit ForwardingPlatform(std::unique_ptr<Platform> wrapped);
    /// Destroys the wrapped platform. A derived class calls `destroyWrapped` in its own destructor, before
    /// the members that its central managers use are destroyed.
    ~ForwardingPlatform() override;
    ForwardingPlatform(const ForwardingPlatform&) = delete;
    ForwardingPlatform& operator=(const ForwardingPlatform&) = delete;

    std::shared_ptr<CBCentralManager> makeCentralManager(
        std::weak_ptr<CBCentralManagerDelegate> delegate) override;
    bool shutDown(double seconds = 5) override;
    RadioCondition radioCondition() const override;
    UIApplication& application() override;
    NSNotificationCenter& notificationCenter() override;
    RunLoop& runLoop() override;
    Clock& clock() override;
    Log& log() override;

protected:
    /// Makes a central manager of the wrapped platform, whose delegate is `central`, and attaches it to
    /// `central`.
    /// @return `central`.
    std::shared_ptr<CBCentralManager> insert(std::shared_ptr<ForwardingCentral> central);

    /// Destroys the wrapped platform. No other function may be called afterwards.
    void destroyWrapped();

private:
    std::unique_ptr<Platform> owned_;
    // Not through the owner, which is empty while it destroys the platform: what this releases may still
    // call.
    Platform& wrapped_;
};

}  // namespace zobi::platform
