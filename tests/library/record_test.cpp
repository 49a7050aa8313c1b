// The record: copying, archiving, letting go.

#include <stdexcept>
#include <tuple>

#include "BytesOfHex.h"
#include "ManagerTest.h"
#include "zobi/platform/standard/KeyedArchive.h"

namespace {

using namespace zobi::platform;

/// A record with a field of its own, as an application may have it.
class LabelledBeacon final : public ZOKBeacon {
public:
    std::optional<std::string> label;

    std::shared_ptr<ZOKBeacon> copy() const override {
        auto copy = std::make_shared<LabelledBeacon>();
        copyInto(*copy);
        return copy;
    }
    void encodeWithCoder(NSCoder& coder) const override {
        ZOKBeacon::encodeWithCoder(coder);
        coder.encodeTextForKey(label, "label");
    }
    void initWithCoder(const NSCoder& coder) override {
        ZOKBeacon::initWithCoder(coder);
        label = coder.decodeTextForKey("label");
    }
};

std::vector<std::uint8_t> archived(const ZOKBeacon& record) {
    NSKeyedArchiver archiver;
    record.encodeWithCoder(archiver);
    return archiver.encodedData();
}

auto fieldsOf(const ZOKBeacon& record) {
    return std::tuple(record.firmwareVersion(), record.major(), record.minor());
}

TEST(RecordTest, ACopyCarriesThreeFieldsAndIsAnotherRecord) {
    const auto record = makeRecord(12, 345, 99);
    record->setFirmwareVersion("1.2");
    record->setMacAddress("ABCDEF123456");
    record->setAccelerometer({1, -2, 3});
    record->setConnectionCompletionBlock([](const auto&, const auto&, const auto*) {});
    const auto copy = record->copy();
    EXPECT_NE(copy, record);
    EXPECT_EQ(fieldsOf(*copy), fieldsOf(*record));
    EXPECT_EQ(copy->macAddress(), std::nullopt);
    EXPECT_EQ(copy->timestamp(), 0);
    EXPECT_EQ(copy->accelerometer(), ZOKAccelerometerAxes());
    EXPECT_EQ(copy->connectionCompletionBlock(), nullptr);
    EXPECT_NE(std::dynamic_pointer_cast<LabelledBeacon>(LabelledBeacon().copy()), nullptr);
}

// Applications keep archives: those that were written once are read for ever.
TEST(RecordTest, AnArchiveCarriesThreeFieldsInTheSameBytesAlways) {
    const auto bytes = [](const std::string& version, const std::string& major, const std::string& minor) {
        return bytesOfHex("A3 6F 66 69 72 6D 77 61 72 65 56 65 72 73 69 6F 6E " + version +
                          " 65 6D 61 6A 6F 72 " + major + " 65 6D 69 6E 6F 72 " + minor);
    };
    const auto ofAllFields = bytes("63 31 2E 32", "19 01 2C", "07");
    const auto ofAbsentFields = bytes("F6", "F6", "F6");
    ZOKBeacon record;
    record.setMacAddress("ABCDEF123456");
    EXPECT_EQ(archived(record), ofAbsentFields);
    record.setFirmwareVersion("1.2");
    record.setMajor(NSNumber::numberWithInt(300));
    record.setMinor(NSNumber::numberWithInt(7));
    EXPECT_EQ(archived(record), ofAllFields);

    ZOKBeacon read;
    read.initWithCoder(NSKeyedUnarchiver(ofAllFields));
    EXPECT_EQ(fieldsOf(read), fieldsOf(record));
    read.initWithCoder(NSKeyedUnarchiver(ofAbsentFields));
    EXPECT_EQ(fieldsOf(read), fieldsOf(ZOKBeacon()));
}

TEST(RecordTest, ASubclassArchivesKeysOfItsOwnWhichTheBaseSkips) {
    LabelledBeacon record;
    record.setMajor(NSNumber::numberWithInt(1));
    record.label = "door";
    LabelledBeacon same;
    same.initWithCoder(NSKeyedUnarchiver(archived(record)));
    EXPECT_EQ(same.label, "door");
    ZOKBeacon base;
    base.initWithCoder(NSKeyedUnarchiver(archived(record)));
    EXPECT_EQ(base.major(), NSNumber::numberWithInt(1));
}

TEST(RecordTest, ARefusedArchiveLeavesTheRecordAsItWas) {
    NSKeyedArchiver archiver;
    archiver.encodeTextForKey("2.0", "firmwareVersion");
    archiver.encodeTextForKey("seven", "minor");
    const auto record = makeRecord(1, 2);
    EXPECT_THROW(record->initWithCoder(NSKeyedUnarchiver(archiver.encodedData())), std::invalid_argument);
    EXPECT_EQ(fieldsOf(*record), fieldsOf(*makeRecord(1, 2)));
}

TEST(RecordTest, LetsGoOfItsCompletionsInAFixedOrder) {
    std::vector<std::string> order;
    const auto noting = [&order](const char* name) {
        const std::shared_ptr<void> mark(&order, [&order, name](void*) { order.emplace_back(name); });
        return [mark](const auto&, const auto&, const auto*) {};
    };
    auto record = makeRecord(1, 2);
    record->setConnectionCompletionBlock(noting("connection"));
    record->setDisconnectionCompletionBlock(noting("disconnection"));
    record.reset();
    EXPECT_THAT(order, ::testing::ElementsAre("disconnection", "connection"));
}

}  // namespace
