#pragma once

#include "platform/bluez/bus/Bus.h"
#include "platform/bluez/controller/ControllerChannel.h"
#include "zobi/platform/NSError.h"

namespace zobi::platform::bluez {

enum class GATTOperation { read, write, notify };

/// What an error of the service to a GATT operation means.
NSError errorOfOperation(GATTOperation operation, const BusError& error);

/// Whether an operation may have failed because the link has just ended, of which the service tells a moment
/// later.
bool mayTellLinkEnd(const NSError& error);

/// What an error of the service to `Connect` means for the attempt.
enum class ConnectRefusal {
    /// The outcome is still open: the properties of the device tell it.
    open,
    /// The device has to be heard before it is tried again.
    waits,
    /// The attempt failed this time.
    failed,
    /// It would fail each time.
    final,
};
ConnectRefusal refusalOf(const BusError& error);

/// The error that a link's end is reported with.
NSError errorOfLinkEnd(const LinkEnd& end);

}  // namespace zobi::platform::bluez
