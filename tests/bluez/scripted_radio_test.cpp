// The suite over the BlueZ radio, against a scripted Bluetooth service and in virtual time.

#include "ScriptedPlatform.h"
#include "radio/LibraryOverRadio.h"
#include "radio/RadioTest.h"

namespace {

const auto scriptedRadio = ::testing::Values(
    RadioUnderTest{"Scripted", [] { return std::make_unique<zobi::platform::bluez::ScriptedBench>(); }});

INSTANTIATE_TEST_SUITE_P(Scripted, RadioPromises, scriptedRadio);
INSTANTIATE_TEST_SUITE_P(Scripted, LibraryOverRadio, scriptedRadio);

}  // namespace
