// The suite over the BlueZ radio, against a scripted Bluetooth service and in virtual time; with what is
// tested of this radio besides.

#include "BlueZRadio.h"
#include "radio/LibraryOverRadio.h"

namespace zobi::platform::bluez {

const auto radios = ::testing::Values(scriptedRadio);

INSTANTIATE_TEST_SUITE_P(Scripted, BlueZRadio, radios);

}  // namespace zobi::platform::bluez

INSTANTIATE_TEST_SUITE_P(Scripted, RadioPromises, zobi::platform::bluez::radios);
INSTANTIATE_TEST_SUITE_P(Scripted, LibraryOverRadio, zobi::platform::bluez::radios);
