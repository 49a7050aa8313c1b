#pragma once

#include <string>
#include <string_view>

#include "platform/bluez/service/AdapterChoice.h"
#include "platform/bluez/service/BlockSwitch.h"
#include "zobi/platform/CBCentralManager.h"
#include "zobi/platform/RadioCondition.h"

namespace zobi::platform::bluez {

// What can be in the way of the radio, and what a user can do about it: in the same words for applications,
// for the log and for the doctor.

RadioCondition busIsMissing();

/// @param canBeStarted whether the bus knows how to start the service.
RadioCondition serviceIsMissing(bool canBeStarted);

/// @param message the text of the error that the bus has given.
RadioCondition accessIsRefused(const std::string& message);

/// The service was there, or is, and does not list its objects.
RadioCondition serviceIsSilent();

/// Service or adapter were there, and nothing says that they stay away.
RadioCondition radioIsGone();

/// The service believes that the controller scans, and no program's scan makes it do so.
RadioCondition controllerDoesNotScan();

/// @param adapters those that the service has.
/// @param wanted which one is asked for; empty for any.
RadioCondition adapterIsMissing(const Adapters& adapters, const std::string& wanted);

/// @param name "hci0", for example.
RadioCondition adapterIsBlocked(const std::string& name, BlockSwitch blockSwitch);

/// The adapter hears no device of Low Energy.
/// @param isOff whether it could, and is not switched on.
RadioCondition lowEnergyIsMissing(const std::string& name, bool isOff);

/// The switch that keeps an adapter off, as the kernel or the service tells it.
/// @param name "hci0", for example.
BlockSwitch blockSwitchOf(const Adapter& adapter, const std::string& name);

/// Whether the adapter with this path, one of `adapters`, is on, off or blocked.
RadioCondition conditionOfAdapter(const Adapters& adapters, std::string_view path);

/// How an application is told.
CBManagerState stateOf(RadioCondition::Kind kind);

}  // namespace zobi::platform::bluez
