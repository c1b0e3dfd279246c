// SPDX-License-Identifier: Apache-2.0
//
// What the reporter does by itself with input devices, and with the HID devices behind them.

#include <gmock/gmock.h>

#include "tests/unit/tools/switching_fixture.h"

namespace android::vus::hotplug {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

TEST_F(SwitchingTest, RefusedInputDeviceIsSilencedAndItsHidDeviceClosed) {
    allows_ = false;
    Judge(kInputDevice, Input(5, kHid));
    Judge({"input6"}, Input(6, ""));  // no HID device's
    EXPECT_THAT(Switched(),
                UnorderedElementsAre("hush input5", std::string("unbind ") + kHid, "hush input6"));
    EXPECT_THAT(Notices(),
                UnorderedElementsAre(std::string("closed input5 and ") + kHid, "closed input6"));
}

// The daemon would take a keyboard whose HID device has no driver for a vendor's own HID.
TEST_F(SwitchingTest, HidDeviceKeepsItsDriverWhileTheUsbDeviceIsAskedAbout) {
    std::promise<void> answer;
    fake_->allow = [let = answer.get_future().share()](const DeviceInfo& info) {
        if (info.deviceType == kUsbType) let.wait();
        return false;
    };
    Judge(kStick, Usb(1005, {3}));
    Sighting keyboard = Input(5, kHid);
    keyboard.usb_device = kStick;
    Judge(kInputDevice, keyboard);
    EXPECT_THAT(switches_.TakeAtLeast(1), ElementsAre("hush input5"));
    EXPECT_THAT(fake_->TakeAtLeast(1), ElementsAre("judge 5"));
    answer.set_value();
    EXPECT_THAT(Switched(), ElementsAre(std::string("unbind ") + kHid));
}

TEST_F(SwitchingTest, RefusedInputDeviceStaysInTheListUntilItsHidDeviceGoes) {
    Refuse(kInputDevice, Input(5, kHid));
    reporter_->removed(kInputDevice);  // what unbinding brings about
    EXPECT_THAT(Calls(), IsEmpty());
    reporter_->hid_removed("0003:0627:0001.0002");
    EXPECT_THAT(Calls(), IsEmpty());
    reporter_->hid_removed(kHid);
    EXPECT_THAT(Calls(), ElementsAre("update 5 0"));
}

// Whoever looked around saw it a moment ago.
TEST_F(SwitchingTest, RefusedInputDeviceThatCannotBeReadAnyMoreStaysInTheList) {
    Refuse(kInputDevice, Input(5, kHid));
    Judge(kInputDevice, {});
    EXPECT_THAT(Calls(), IsEmpty());
    reporter_->hid_removed(kHid);
    EXPECT_THAT(Calls(), ElementsAre("update 5 0"));
}

TEST_F(SwitchingTest, RefusedInputDeviceWhoseHidDeviceWentFirstGoes) {
    Refuse(kInputDevice, Input(5, kHid));
    auto answer = Stall();
    Judge({"input6"}, Input(6, kHid));
    reporter_->removed({"input6"});
    reporter_->hid_removed(kHid);
    answer.set_value();
    EXPECT_THAT(Calls(), testing::IsSupersetOf({"update 5 0", "update 6 0"}));
}

TEST_F(SwitchingTest, InputDeviceThatIsAllowedLaterGetsItsDriverBack) {
    Refuse(kInputDevice, Input(5, kHid));
    reporter_->removed(kInputDevice);
    reporter_->drain();
    allows_ = true;
    const sp<FakeService> next = new FakeService;
    next->note_lists = false;
    reporter_->set_service(next);
    reporter_->keep_only({{kHid}, {kHid}});
    EXPECT_THAT(Switched(), ElementsAre("unhush input5", std::string("probe ") + kHid));
    // The driver makes another input device.
    EXPECT_THAT(next->Take(), ElementsAre("judge 5", "update 5 0"));
}

// Until the lists are compared, it has its driver back and is known no more.
TEST_F(SwitchingTest, InputDeviceThatGotItsDriverBackIsNotTakenForOneThatNobodyKnows) {
    Refuse(kInputDevice, Input(5, kHid));
    reporter_->removed(kInputDevice);
    reporter_->drain();
    allows_ = true;
    const sp<FakeService> next = new FakeService;
    next->note_lists = false;
    reporter_->set_service(next);
    std::promise<void> compared;
    const Subject in_the_lane_of_the_lists = {""};
    reporter_->judge(
            in_the_lane_of_the_lists,
            [let = compared.get_future().share()] {
                let.wait();
                return Sighting{};
            },
            Ask::kAlways);
    reporter_->keep_only({{kHid}, {kHid}});
    EXPECT_THAT(next->TakeAtLeast(2), ElementsAre("judge 5", "update 5 0"));
    compared.set_value();
    EXPECT_THAT(Switched(), ElementsAre("unhush input5", std::string("probe ") + kHid));
}

TEST_F(SwitchingTest, InputDeviceThatIsClosedIsAskedAboutUnderAnotherPolicy) {
    Refuse(kInputDevice, Input(5, kHid));
    reporter_->removed(kInputDevice);  // with its HID device's driver
    reporter_->drain();
    reporter_->policy_changed();
    allows_ = true;
    reporter_->keep_only({{kHid}, {}});
    EXPECT_THAT(Calls(), ElementsAre("update 5 0", "judge 5", "update 5 0"));
    EXPECT_THAT(Switched(), ElementsAre("unhush input5", std::string("probe ") + kHid));
}

TEST_F(SwitchingTest, InputDeviceOfNoHidDeviceIsHeardAgainWhenItIsAllowedLater) {
    Refuse(kInputDevice, Input(5, ""));
    allows_ = true;
    const sp<FakeService> next = new FakeService;
    reporter_->set_service(next);
    Judge(kInputDevice, Input(5, ""));
    EXPECT_THAT(Switched(), ElementsAre("unhush input5"));
}

TEST_F(SwitchingTest, HidDeviceThatHasADriverAgainIsJudgedAnew) {
    Refuse(kInputDevice, Input(5, kHid));
    reporter_->removed(kInputDevice);
    reporter_->drain();
    Judge({"input6"}, Input(6, kHid));
    EXPECT_THAT(Calls(), UnorderedElementsAre("judge 6", "update 5 0"));
    EXPECT_THAT(Switched(), ElementsAre("hush input6", std::string("unbind ") + kHid));
}

TEST_F(SwitchingTest, UnansweredInputDeviceIsOnlySilenced) {
    auto answer = Stall();
    Judge(kInputDevice, Input(5, kHid));
    reporter_->lose_patience(start_ + seconds(60));
    EXPECT_THAT(switches_.TakeAtLeast(1), ElementsAre("hush input5"));
    answer.set_value();
    EXPECT_THAT(Switched(), ElementsAre("unhush input5"));
}

// The kernel opens a device that is to be heard again, and that can fail.
TEST_F(SwitchingTest, InputDeviceThatCouldNotBeHeardIsOpenedOnceMore) {
    Refuse(kInputDevice, Input(5, ""));
    reporter_->policy_changed();
    allows_ = true;
    switches_.failures = 3;
    Judge(kInputDevice, Input(5, ""));
    EXPECT_THAT(Switched(), ElementsAre("unhush input5"));
    EXPECT_THAT(Notices(), IsEmpty());
    auto pause = reporter_->next_deadline().value() - Reporter::Clock::now();
    EXPECT_LE(pause, std::chrono::milliseconds(100));
    for (int more = 0; more < 3; ++more) {
        ASSERT_TRUE(reporter_->next_deadline());
        reporter_->lose_patience(start_ + seconds(60));
        EXPECT_THAT(Switched(), ElementsAre("unhush input5"));
    }
    EXPECT_FALSE(reporter_->next_deadline());
    EXPECT_THAT(Notices(), ElementsAre("opened input5"));
    reporter_->lose_patience(start_ + seconds(60));
    EXPECT_THAT(Switched(), IsEmpty());
}

TEST_F(SwitchingTest, InputDeviceThatIsRefusedBeforeItCouldBeHeardStaysClosed) {
    Refuse(kInputDevice, Input(5, ""));
    reporter_->policy_changed();
    allows_ = true;
    switches_.failures = 1;
    Judge(kInputDevice, Input(5, ""));
    Switched();
    reporter_->policy_changed();
    allows_ = false;
    Judge(kInputDevice, Input(5, ""));
    EXPECT_THAT(Switched(), ElementsAre("hush input5"));
    reporter_->lose_patience(start_ + seconds(60));
    EXPECT_THAT(Switched(), IsEmpty());
    reporter_->removed(kInputDevice);
    reporter_->drain();
    EXPECT_FALSE(reporter_->next_deadline());
}

TEST_F(SwitchingTest, InputDeviceThatAnEarlierReporterClosedStaysListed) {
    DeviceInfo keyboard = *Input(5, "").info;
    keyboard.vendorId = 0x627;
    keyboard.productId = 1;
    DeviceInfo other = *Input(6, "").info;
    fake_->devices = {keyboard, other};
    reporter_->keep_only({{kHid}, {kHid}});
    EXPECT_THAT(Calls(), ElementsAre("update 6 0"));
    EXPECT_THAT(Switched(), IsEmpty());
    reporter_->hid_removed(kHid);
    EXPECT_THAT(Calls(), ElementsAre("update 5 0"));
}

TEST_F(SwitchingTest, HidDeviceThatNobodyKnowsToBeClosedIsOpenedAndJudged) {
    reporter_->keep_only({{kHid, "0003:0627:0001.0002"}, {kHid}});
    EXPECT_THAT(Switched(), ElementsAre(std::string("probe ") + kHid));
}

}  // namespace
}  // namespace android::vus::hotplug
