// Broadcasts, and the application's state that is told by them.

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "zobi/platform/standard/StandardApplication.h"
#include "zobi/platform/standard/StandardNotificationCenter.h"

namespace zobi::platform {
namespace {

using ::testing::ElementsAre;

TEST(UserInfoTest, HoldsAtMostOneValue) {
    const NSUserInfo info("value", NSNumber::numberWithInt(3));
    EXPECT_EQ(info.count(), 1U);
    EXPECT_EQ(std::get<NSNumber>(*info.objectForKey("value")), NSNumber::numberWithInt(3));
    EXPECT_EQ(info.objectForKey("other"), nullptr);
    EXPECT_EQ(NSUserInfo().objectForKey(""), nullptr);
}

class NotificationTest : public ::testing::Test {
protected:
    NSNotificationCenter::Token observe(std::string_view name, const std::string& mark,
                                        std::shared_ptr<void> object = nullptr) {
        return center.addObserverForNameObjectUsingBlock(
            name, std::move(object), [this, mark](const auto&) { heard.push_back(mark); });
    }

    void post(std::string_view name, std::shared_ptr<void> object = nullptr) {
        center.postNotificationNameObjectUserInfo(name, std::move(object), {});
    }

    StandardNotificationCenter center;
    std::vector<std::string> heard;
};

TEST_F(NotificationTest, ReachesTheObserversOfItsNameAndObjectInTheOrderTheyWereAdded) {
    const auto one = std::make_shared<int>(1);
    const auto two = std::make_shared<int>(1);
    observe("a", "any");
    observe("a", "one", one);
    observe("a", "two", two);
    observe("b", "other name");
    post("a", one);
    EXPECT_THAT(heard, ElementsAre("any", "one"));
    heard.clear();
    post("a");
    EXPECT_THAT(heard, ElementsAre("any"));
}

TEST_F(NotificationTest, ObserversMayComeAndGoWhileItIsPosted) {
    NSNotificationCenter::Token self;
    NSNotificationCenter::Token later;
    const auto held = std::make_shared<std::string>("self");
    self = center.addObserverForNameObjectUsingBlock("a", nullptr, [&, held](const auto&) {
        center.removeObserver(self);
        center.removeObserver(later);
        observe("a", "added");
        heard.push_back(*held);
    });
    later = observe("a", "later");
    post("a");
    EXPECT_THAT(heard, ElementsAre("self"));
    self = nullptr;
    EXPECT_EQ(held.use_count(), 1) << "a removed observer still holds its block";
    post("a");
    EXPECT_THAT(heard, ElementsAre("self", "added"));
    center.removeObserver(later);
}

TEST_F(NotificationTest, AnExceptionLeavesThePostingCallAndTheCentreGoesOn) {
    const auto thrower = center.addObserverForNameObjectUsingBlock(
        "a", nullptr, [](const auto&) { throw std::runtime_error("from an observer"); });
    observe("a", "next");
    EXPECT_THROW(post("a"), std::runtime_error);
    center.removeObserver(thrower);
    post("a");
    EXPECT_THAT(heard, ElementsAre("next"));
}

TEST_F(NotificationTest, TheApplicationsStateChangesBeforeItIsBroadcast) {
    StandardApplication application(center);
    std::vector<std::pair<std::string, UIApplicationState>> told;
    for (const auto name :
         {UIApplicationDidBecomeActiveNotification, UIApplicationDidEnterBackgroundNotification}) {
        center.addObserverForNameObjectUsingBlock(name, nullptr, [&](const NSNotification& notification) {
            told.emplace_back(notification.name, application.applicationState());
        });
    }
    using enum UIApplicationState;
    EXPECT_EQ(application.applicationState(), active);
    for (const auto state : {active, inactive, background, background, active}) {
        application.setApplicationState(state);
    }
    EXPECT_THAT(told, ElementsAre(std::pair("UIApplicationDidEnterBackgroundNotification", background),
                                  std::pair("UIApplicationDidBecomeActiveNotification", active)));
}

}  // namespace
}  // namespace zobi::platform
