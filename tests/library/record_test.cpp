// The record: copying, archiving, letting go.

#include <stdexcept>

#include "support.h"
#include "zobi/platform/standard/KeyedArchive.h"

namespace {

using zobi::platform::NSKeyedArchiver;
using zobi::platform::NSKeyedUnarchiver;
using zobi::platform::NSNumber;

/// A record with a field of its own, as an application may have it.
class LabelledBeacon final : public ZOKBeacon {
public:
    std::optional<std::string> label;

    std::shared_ptr<ZOKBeacon> copy() const override {
        auto copy = std::make_shared<LabelledBeacon>();
        copyInto(*copy);
        return copy;
    }
    void encodeWithCoder(zobi::platform::NSCoder& coder) const override {
        ZOKBeacon::encodeWithCoder(coder);
        coder.encodeTextForKey(label, "label");
    }
    void initWithCoder(const zobi::platform::NSCoder& coder) override {
        ZOKBeacon::initWithCoder(coder);
        label = coder.decodeTextForKey("label");
    }
};

std::vector<std::uint8_t> archived(const ZOKBeacon& record) {
    NSKeyedArchiver archiver;
    record.encodeWithCoder(archiver);
    return archiver.encodedData();
}

TEST(RecordTest, ACopyCarriesThreeFieldsAndIsAnotherRecord) {
    const auto record = makeRecord(12, 345, 99);
    record->setFirmwareVersion("1.2");
    record->setMacAddress("ABCDEF123456");
    record->setAccelerometer({1, -2, 3});
    record->setConnectionCompletionBlock([](const auto&, const auto&, const auto*) {});
    const auto copy = record->copy();
    EXPECT_NE(copy, record);
    EXPECT_EQ(copy->firmwareVersion(), "1.2");
    EXPECT_EQ(copy->major(), NSNumber::numberWithInt(12));
    EXPECT_EQ(copy->minor(), NSNumber::numberWithInt(345));
    EXPECT_EQ(copy->macAddress(), std::nullopt);
    EXPECT_EQ(copy->timestamp(), 0);
    EXPECT_EQ(copy->accelerometer(), ZOKAccelerometerAxes());
    EXPECT_EQ(copy->connectionCompletionBlock(), nullptr);
    EXPECT_EQ(record->accelerometer(), (ZOKAccelerometerAxes{1, -2, 3}));
    EXPECT_NE(std::dynamic_pointer_cast<LabelledBeacon>(LabelledBeacon().copy()), nullptr);
}

TEST(RecordTest, AnArchiveCarriesThreeFieldsInTheirOrder) {
    const auto record = makeRecord(300, 7, 99);
    // A map of three: text to null, text to 300, text to 7.
    std::string expected = "\xA3\x6F";
    expected += "firmwareVersion\xF6\x65";
    expected += "major\x19\x01\x2C\x65";
    expected += "minor\x07";
    const auto data = archived(*record);
    EXPECT_EQ(std::string(data.begin(), data.end()), expected);

    record->setFirmwareVersion("1.2");
    ZOKBeacon read;
    read.initWithCoder(NSKeyedUnarchiver(archived(*record)));
    EXPECT_EQ(read.firmwareVersion(), "1.2");
    EXPECT_EQ(read.major(), record->major());
    EXPECT_EQ(read.minor(), record->minor());
    EXPECT_EQ(read.timestamp(), 0);
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
    EXPECT_EQ(base.minor(), NSNumber());
    same.initWithCoder(NSKeyedUnarchiver(archived(base)));
    EXPECT_EQ(same.label, std::nullopt);
}

TEST(RecordTest, ARefusedArchiveLeavesTheRecordAsItWas) {
    NSKeyedArchiver archiver;
    archiver.encodeTextForKey("2.0", "firmwareVersion");
    archiver.encodeTextForKey("seven", "minor");
    const auto record = makeRecord(1, 2);
    EXPECT_THROW(record->initWithCoder(NSKeyedUnarchiver(archiver.encodedData())), std::invalid_argument);
    EXPECT_EQ(record->firmwareVersion(), std::nullopt);
    EXPECT_EQ(record->minor(), NSNumber::numberWithInt(2));

    record->setFirmwareVersion("\xFF");
    EXPECT_THROW(archived(*record), std::invalid_argument);
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
