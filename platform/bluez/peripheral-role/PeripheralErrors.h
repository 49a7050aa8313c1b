#pragma once

#include "platform/bluez/bus/Bus.h"
#include "zobi/platform/NSError.h"
#include "zobi/platform/bluez/PeripheralManager.h"

namespace zobi::platform::bluez {

/// How an error of the Attribute Protocol is told to the service, so that it answers the central the same.
BusError busErrorOf(const NSError& error);

/// A request is not what it should be.
BusError invalidArgumentsError();

/// A part of a value was asked for that it does not have, or that cannot be written by itself.
NSError invalidOffsetError();

/// Why the service does not offer our services, and what can be done about it.
NSError errorOfServing(const BusError& error);

/// Why it does not advertise.
NSError errorOfAdvertising(const BusError& error, const LocalAdvertisement& advertisement);

}  // namespace zobi::platform::bluez
