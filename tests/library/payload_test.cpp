// From the bytes of an advertisement to a record, and from a simulated beacon to the bytes.

#include <array>

#include "BytesOfHex.h"
#include "ManagerTest.h"
#include "ZobiConnectKit/simulation/PayloadEncoder.h"

namespace {

using zobi::BeaconDescription;
using zobi::platform::NSNumber;

class PayloadTest : public ManagerTest {
protected:
    std::shared_ptr<ZOKBeacon> decode(const std::vector<std::uint8_t>& payload) {
        return ZOKProtocolUtils::beaconFromDataOnPlatform(payload, platform);
    }
};

/// A payload of each layout, with the record that it makes.
const std::array<std::pair<const char*, const char*>, 9> payloadCases{{
    {"56 34 12 EF CD AB 07 01 2C 00 07 03 5A 00 1A 02",
     "<ZOKBeacon ABCDEF123456 major 300 minor 7 version 3 battery 90 temperature 22 action 2>"},
    {"56 34 12 EF CD AB 07 01 2C 00 07 02 5A 02",
     "<ZOKBeacon ABCDEF123456 major 300 minor 7 version 2 battery 90 temperature (null) action 2>"},
    {"56 34 12 EF CD AB 07 01 2C 00 07",
     "<ZOKBeacon ABCDEF123456 major 300 minor 7 version 1 battery 0 temperature (null) action 0>"},
    // Version 5, in 13 bytes; version 1, written out; a version below 0.
    {"01 02 03 04 05 0A FF FF FF 80 00 05 FF",
     "<ZOKBeacon 0A0504030201 major 65535 minor 32768 version 5 battery 255 temperature (null) action "
     "(null)>"},
    {"00 00 00 00 00 00 00 00 00 00 01 01 64",
     "<ZOKBeacon 000000000000 major 0 minor 1 version 1 battery 100 temperature (null) action (null)>"},
    {"00 00 00 00 00 00 00 00 01 00 02 FF 64 01 02 03",
     "<ZOKBeacon 000000000000 major 1 minor 2 version -1 battery 100 temperature (null) action (null)>"},
    // The lowest temperature and action; the highest temperature, and bytes to spare; the highest action.
    {"00 00 00 00 00 00 00 00 01 00 02 03 00 00 00 80",
     "<ZOKBeacon 000000000000 major 1 minor 2 version 3 battery 0 temperature -4 action -128>"},
    {"00 00 00 00 00 00 00 00 01 00 02 03 80 FF FF FF 11 22",
     "<ZOKBeacon 000000000000 major 1 minor 2 version 3 battery 128 temperature 65531 action -1>"},
    {"00 00 00 00 00 00 00 00 01 00 02 02 01 7F FF 03",
     "<ZOKBeacon 000000000000 major 1 minor 2 version 2 battery 1 temperature (null) action 127>"},
}};

TEST_F(PayloadTest, EveryLayoutIsDecodedAndLoggedInOneLine) {
    platform.virtualTime()->setTimeIntervalSince1970(4'294'967'296.999);
    takeLog();
    for (const auto& [payload, expected] : payloadCases) {
        const auto record = decode(bytesOfHex(payload));
        EXPECT_THAT(takeLog(), ::testing::ElementsAre(expected));
        EXPECT_EQ(record->advertBatteryLevel().kind(), NSNumber::Kind::uint8);
        for (const NSNumber& number : {record->major(), record->minor(), record->scanRspVersion(),
                                       record->temperature(), record->advertAction()}) {
            EXPECT_TRUE(number.kind() == NSNumber::Kind::int32 || !number.hasValue());
        }
        EXPECT_EQ(record->timestamp(), 4'294'967'296);
        EXPECT_EQ(record->batteryLevel(), NSNumber());
    }
}

TEST_F(PayloadTest, EveryLengthUpToTwentyDecodesOrIsRefusedByItsLayout) {
    for (const int version : {1, 2, 3, 5, 0xFF}) {
        for (std::size_t length = 0; length <= 20; ++length) {
            std::vector<std::uint8_t> payload(length, 0x11);
            if (length > 11) payload[11] = static_cast<std::uint8_t>(version);
            const std::size_t needed = length < 12 ? 11 : version == 3 ? 16 : version == 2 ? 14 : 13;
            SCOPED_TRACE("version " + std::to_string(version) + ", " + std::to_string(length) + " bytes");
            takeLog();
            if (length >= needed) {
                EXPECT_NE(decode(payload), nullptr);
                EXPECT_EQ(log.size(), 1U);
            } else {
                EXPECT_THROW(decode(payload), zobi::platform::DataRangeError);
                EXPECT_TRUE(log.empty());
            }
        }
    }
}

TEST_F(PayloadTest, BytesAreReversedIntoNewOnes) {
    EXPECT_EQ(ZOKProtocolUtils::reverseBytes(bytesOfHex("01 02 03")), bytesOfHex("03 02 01"));
    EXPECT_TRUE(ZOKProtocolUtils::reverseBytes({}).empty());
}

TEST_F(PayloadTest, ASimulatedBeaconSendsTheBytesOfItsLayout) {
    BeaconDescription beacon{.macAddress = {0xAB, 0xCD, 0xEF, 0x12, 0x34, 0x56},
                             .major = 300,
                             .minor = 7,
                             .batteryLevel = 90,
                             .temperature = 22,
                             .buttonAction = 2};
    for (const std::size_t row : {0U, 1U, 2U}) {
        beacon.layoutVersion = static_cast<std::int8_t>(3 - row);
        auto expected = bytesOfHex(payloadCases[row].first);
        // It carries nothing.
        expected[6] = 0;
        EXPECT_EQ(encodePayload(beacon), expected);
    }
    beacon.layoutVersion = -1;
    EXPECT_EQ(encodePayload(beacon).size(), 13U);
    EXPECT_EQ(decode(encodePayload(beacon))->scanRspVersion().integerValue(), -1);

    beacon.layoutVersion = 3;
    for (const int degrees : {-4, 65531}) {
        beacon.temperature = degrees;
        EXPECT_EQ(decode(encodePayload(beacon))->temperature().integerValue(), degrees);
    }
    for (const int degrees : {-5, 65532}) {
        beacon.temperature = degrees;
        EXPECT_THROW(encodePayload(beacon), std::invalid_argument);
    }
}

}  // namespace
