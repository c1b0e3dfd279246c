// SPDX-License-Identifier: Apache-2.0
//
// What the reporter does by itself with USB devices: when the daemon refuses, when it does not
// answer, when it is away, when a refused device tries again.

#include <gmock/gmock.h>

#include "tests/unit/tools/switching_fixture.h"

namespace android::vus::hotplug {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

TEST_F(SwitchingTest, RefusalIsSeenToAndAllowanceIsLeftAlone) {
    Judge(kStick, Usb(1005, {8}));
    EXPECT_THAT(Switched(), IsEmpty());
    allows_ = false;
    Judge({"1-3", 1006}, Usb(1006, {8}));
    EXPECT_THAT(Switched(), ElementsAre("close 1-3"));
}

TEST_F(SwitchingTest, DeviceThatIsLeftToTheInputSideStaysOn) {
    allows_ = false;
    Judge(kStick, Usb(1005, {3}));
    EXPECT_THAT(Switched(), IsEmpty());
    // A vendor's own is listed.
    fake_->devices = {*Usb(1006, {3}).info};
    Judge({"1-3", 1006}, Usb(1006, {3}));
    EXPECT_THAT(Switched(), ElementsAre("close 1-3"));
}

TEST_F(SwitchingTest, DeviceThatHasNotSettledIsNotAskedAbout) {
    Sighting seen = Usb(1005, {3});
    seen.settled = false;
    Judge(kStick, seen);
    EXPECT_THAT(Calls(), IsEmpty());
    seen.settled = true;
    Judge(kStick, seen);
    EXPECT_THAT(Calls(), ElementsAre("judge 1005"));
}

TEST_F(SwitchingTest, OnlyWhatHasChangedIsAskedAgainIfSoWished) {
    Sighting seen = Usb(1005, {8});
    Judge(kStick, seen, Ask::kIfChanged);
    Judge(kStick, seen, Ask::kIfChanged);
    EXPECT_THAT(Calls(), ElementsAre("judge 1005"));
}

// The daemon would keep the record that it made without the driver, and announce it twice.
TEST_F(SwitchingTest, WhatALateDriverHasMadeAnotherIsRemovedFirst) {
    Sighting seen = Usb(1005, {8});
    Judge(kStick, seen, Ask::kIfChanged);
    EXPECT_THAT(Calls(), ElementsAre("judge 1005"));
    seen.shape = "another driver";
    for (const Ask when : {Ask::kIfChanged, Ask::kAlways}) {
        Judge(kStick, seen, when);
        EXPECT_THAT(Calls(), ElementsAre("update 1005 0", "judge 1005"));
        seen.shape += "s";
    }
}

TEST_F(SwitchingTest, RefusedDeviceThatHasLostItsDriversIsNoOther) {
    Sighting seen = Usb(1005, {8});
    seen.shape = "usb-storage";
    Refuse(kStick, seen);
    seen.shape = "";
    seen.bare = true;
    Judge(kStick, seen, Ask::kIfChanged);
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
}

// What is left to the input side is in no list.
TEST_F(SwitchingTest, KeyboardWhoseDriverComesLateIsNotRemoved) {
    allows_ = false;
    Sighting seen = Usb(1005, {3});
    Judge(kStick, seen);
    EXPECT_THAT(Calls(), ElementsAre("judge 1005"));
    seen.shape = "usbhid";
    Judge(kStick, seen, Ask::kIfChanged);
    EXPECT_THAT(Calls(), ElementsAre("judge 1005"));
}

TEST_F(SwitchingTest, RefusedDeviceThatHasNotChangedIsSwitchedOffAgain) {
    Refuse(kStick, Usb(1005, {8}));
    Judge(kStick, Usb(1005, {8}), Ask::kIfChanged);
    EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
    EXPECT_THAT(fake_->Take(), IsEmpty());
}

TEST_F(SwitchingTest, InterfacesThatComeBackAreOffAtOnceAndThenTheWholeDevice) {
    Refuse(kStick, Usb(1005, {8}));
    reporter_->interfaces_back(kStick, start_);
    reporter_->interfaces_back(kStick, start_ + milliseconds(2));  // the second of two interfaces
    EXPECT_THAT(Switched(),
                AllOf(Contains("close 1-2"), testing::Not(Contains("close device 1-2"))));
    EXPECT_THAT(Notices(), ElementsAre("closed 1-2: its interfaces have come back"));
    reporter_->interfaces_back(kStick, start_ + milliseconds(400));
    EXPECT_THAT(Switched(), ElementsAre("close device 1-2"));
    // The device is still what it was, and the daemon is not told otherwise.
    Judge(kStick, Usb(1005, {}));
    EXPECT_THAT(Calls(), ElementsAre("judge 1005"));
    allows_ = true;
    Judge(kStick, Usb(1005, {}));
    EXPECT_THAT(Calls(), ElementsAre("judge 1005"));
    EXPECT_THAT(Switched(), testing::IsSupersetOf({"open device 1-2", "open 1-2"}));
}

TEST_F(SwitchingTest, SecondReturnMuchLaterIsAnotherFirst) {
    Refuse(kStick, Usb(1005, {8}));
    for (const auto at : {seconds(0), seconds(10), seconds(20)}) {
        reporter_->interfaces_back(kStick, start_ + at);
        EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
    }
}

TEST_F(SwitchingTest, ConfigurationThatIsTakenAwayIsNoWayOut) {
    Sighting seen = Usb(1005, {8});
    seen.layout = "1-2:1.0=8 ";
    Refuse(kStick, seen);
    Sighting without = Usb(1005, {});
    without.bare = true;
    Judge(kStick, without);
    EXPECT_THAT(Calls(), IsEmpty());
    reporter_->interfaces_back(kStick, start_);
    EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
}

TEST_F(SwitchingTest, DeviceThatIsAllowedInOneConfigurationIsOffIfItGoesOnChanging) {
    Refuse(kStick, Usb(1005, {8}));
    reporter_->interfaces_back(kStick, start_);
    allows_ = true;
    Judge(kStick, Usb(1005, {1}));
    Switched();
    reporter_->interfaces_back(kStick, start_ + milliseconds(400));
    EXPECT_THAT(Switched(), ElementsAre("close device 1-2"));
}

TEST_F(SwitchingTest, DeviceThatIsOffIsJudgedAsWhatItWas) {
    Sighting seen = Usb(1005, {3, 255});
    seen.layout = "1-2:1.0=3 1-2:1.1=3 ";
    Refuse(kStick, seen);
    // Without drivers both interfaces look like HID.
    Sighting off = Usb(1005, {3, 3});
    off.layout = seen.layout;
    off.bare = true;
    std::vector<int32_t> asked;
    fake_->allow = [&asked](const DeviceInfo& info) {
        asked = info.interfaceClassList;
        return true;
    };
    Judge(kStick, off);
    EXPECT_THAT(Calls(), ElementsAre("judge 1005"));
    EXPECT_THAT(asked, ElementsAre(3, 255));
    EXPECT_THAT(Switched(), ElementsAre("open 1-2"));
}

TEST_F(SwitchingTest, VendorHidThatIsOffIsJudgedAsItsVendorsOwn) {
    Sighting seen = Usb(1005, {3});
    fake_->devices = {*seen.info};  // so that the refusal is one
    Refuse(kStick, seen);
    seen.bare = true;
    std::vector<int32_t> asked;
    fake_->allow = [&asked](const DeviceInfo& info) {
        asked = info.interfaceClassList;
        return false;
    };
    Judge(kStick, seen);
    reporter_->drain();
    EXPECT_THAT(asked, ElementsAre(255));
}

TEST_F(SwitchingTest, DeviceThatAnEarlierReporterSawRefusedIsJudgedAsThat) {
    fake_->devices = {*Usb(1005, {255}).info};
    Sighting off = Usb(1005, {3});
    off.bare = true;
    Judge(kStick, off);
    EXPECT_THAT(Switched(), testing::Contains("open 1-2")) << "it is allowed now";
    EXPECT_THAT(fake_->Take(), ElementsAre("judge 1005"));
}

TEST_F(SwitchingTest, InterfacesOfAnAllowedDeviceMayComeBack) {
    Judge(kStick, Usb(1005, {8}));
    reporter_->drain();
    reporter_->interfaces_back(kStick, start_);
    reporter_->interfaces_back({"1-9", 1009}, start_);
    EXPECT_THAT(Switched(), IsEmpty());
}

TEST_F(SwitchingTest, AnotherConfigurationThatIsAllowedIsOpened) {
    Refuse(kStick, Usb(1005, {8}));
    reporter_->interfaces_back(kStick, start_);
    Switched();
    allows_ = true;
    Judge(kStick, Usb(1005, {1}));
    EXPECT_THAT(Switched(), ElementsAre("open 1-2"));
    EXPECT_THAT(fake_->Take(), ElementsAre("update 1005 0", "judge 1005"));
}

TEST_F(SwitchingTest, DeviceIsOffWhileThereIsNoAnswerAndOnWhenThereIsOne) {
    auto answer = Stall();
    Judge(kStick, Usb(1005, {8}));
    reporter_->lose_patience(start_ + milliseconds(1999));
    EXPECT_THAT(switches_.Take(), IsEmpty());
    ASSERT_TRUE(reporter_->next_deadline());
    reporter_->lose_patience(*reporter_->next_deadline());
    EXPECT_EQ(reporter_->next_deadline(), std::nullopt);
    EXPECT_THAT(Notices(), ElementsAre("closed 1-2: no answer within 2 s"));
    EXPECT_THAT(switches_.TakeAtLeast(1), ElementsAre("close 1-2"));
    answer.set_value();
    EXPECT_THAT(Switched(), ElementsAre("open 1-2"));
    EXPECT_THAT(Notices(), ElementsAre("opened 1-2"));
}

TEST_F(SwitchingTest, HidThatWasOffWhileItWasLookedAtIsAskedAboutAgain) {
    auto answer = Stall();
    allows_ = false;
    Judge(kStick, Usb(1005, {3}));
    reporter_->lose_patience(start_ + seconds(60));
    EXPECT_THAT(switches_.TakeAtLeast(1), ElementsAre("close 1-2"));
    answer.set_value();
    EXPECT_THAT(Switched(), ElementsAre("open 1-2"));
    // Its driver is back, and with that it is a vendor's own.
    fake_->devices = {*Usb(1005, {3}).info};
    Judge(kStick, Usb(1005, {3}), Ask::kIfChanged);
    EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
}

TEST_F(SwitchingTest, DeviceThatIsOffForWantOfAnAnswerStaysOffAfterARefusal) {
    auto answer = Stall();
    allows_ = false;
    Judge(kStick, Usb(1005, {8}));
    reporter_->lose_patience(start_ + seconds(60));
    answer.set_value();
    EXPECT_THAT(Switched(), testing::Each("close 1-2"));
}

TEST_F(SwitchingTest, DeviceThatIsAllowedStaysOnWhileItIsAskedAboutAgain) {
    Judge(kStick, Usb(1005, {8}));
    EXPECT_THAT(Calls(), ElementsAre("judge 1005"));
    std::promise<void> asked, answer;
    fake_->allow = [&asked, let = answer.get_future().share()](const DeviceInfo&) {
        asked.set_value();
        let.wait();
        return true;
    };
    Judge(kStick, Usb(1005, {8}));
    asked.get_future().wait();
    reporter_->lose_patience(start_ + seconds(60));
    answer.set_value();
    EXPECT_THAT(Switched(), IsEmpty());
    EXPECT_THAT(Notices(), IsEmpty());
}

TEST_F(SwitchingTest, NextDeviceAtAStuckPortIsJudged) {
    auto answer = std::make_shared<std::promise<void>>();
    fake_->allow = [let = answer->get_future().share()](const DeviceInfo& info) {
        if (info.deviceId == 1005) let.wait();
        return true;
    };
    Judge(kStick, Usb(1005, {8}));
    reporter_->removed(kStick);
    Judge({"1-2", 1006}, Usb(1006, {8}));
    EXPECT_THAT(fake_->TakeAtLeast(1), ElementsAre("judge 1006"));
    answer->set_value();
    EXPECT_THAT(Calls(), ElementsAre("judge 1005", "update 1005 0"));
}

TEST_F(SwitchingTest, NumberThatCameRoundIsRemovedBeforeItIsJudgedAgain) {
    auto answer = Stall();
    Judge(kStick, Usb(1005, {8}));
    reporter_->removed(kStick);
    Judge({"1-7", 1005}, Usb(1005, {8}));
    answer.set_value();
    EXPECT_THAT(Calls(), ElementsAre("judge 1005", "update 1005 0", "judge 1005"));
}

TEST_F(SwitchingTest, NothingIsOpenedThatCameWhileTheDaemonWasAway) {
    reporter_ = std::make_unique<Reporter>(&switches_, Manner(/*fail_closed=*/true));
    Judge(kStick, Usb(1005, {8}));
    Judge({"1-1", 1002}, {});  // a hub
    EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
    EXPECT_THAT(Notices(), ElementsAre("closed 1-2: the daemon is away"));
    reporter_->set_service(fake_);
    Judge(kStick, Usb(1005, {8}));
    EXPECT_THAT(Switched(), ElementsAre("open 1-2"));
    // What was allowed stays, whoever is away.
    reporter_->set_service(nullptr);
    Judge(kStick, Usb(1005, {8}));
    EXPECT_THAT(Switched(), IsEmpty());
}

TEST_F(SwitchingTest, NothingIsClosedWhileTheDaemonIsAwayUnlessAskedFor) {
    reporter_->set_service(nullptr);
    Judge(kStick, Usb(1005, {8}));
    EXPECT_THAT(Switched(), IsEmpty());
}

TEST_F(SwitchingTest, WhatWasThereBeforeIsClosedIfThePolicyRefusesIt) {
    auto manner = Manner(/*fail_closed=*/true);
    manner.refuses = [](const DeviceInfo& info) { return info.deviceId != 1006; };
    reporter_ = std::make_unique<Reporter>(&switches_, manner);
    Judge(kStick, Usb(1005, {8}), Ask::kFoundAlone);
    Judge({"1-3", 1006}, Usb(1006, {8}), Ask::kFoundAlone);
    Judge({"1-4", 1007}, Usb(1007, {3}), Ask::kFoundAlone);  // its input devices are judged
    Judge(kInputDevice, Input(5, kHid), Ask::kFoundAlone);
    EXPECT_THAT(Switched(), UnorderedElementsAre("close 1-2", "hush input5"));
    EXPECT_THAT(Notices(), Contains("closed 1-2: the daemon is away, and the policy refuses it"));
    reporter_->set_service(fake_);
    Judge(kStick, Usb(1005, {8}));
    Judge(kInputDevice, Input(5, kHid));
    EXPECT_THAT(Switched(), UnorderedElementsAre("open 1-2", "unhush input5"));
}

TEST_F(SwitchingTest, WhatWasThereBeforeIsLeftAloneIfNothingIsKnownOfThePolicy) {
    reporter_ = std::make_unique<Reporter>(&switches_, Manner(/*fail_closed=*/true));
    Judge(kStick, Usb(1005, {8}), Ask::kFoundAlone);
    EXPECT_THAT(Switched(), IsEmpty());
    Judge({"1-3", 1006}, Usb(1006, {8}));
    EXPECT_THAT(Switched(), ElementsAre("close 1-3")) << "it came afterwards";
}

TEST_F(SwitchingTest, AnotherPolicyIsAnotherQuestion) {
    Judge(kStick, Usb(1005, {8}), Ask::kIfChanged);
    EXPECT_THAT(Calls(), ElementsAre("judge 1005"));
    reporter_->policy_changed();
    allows_ = false;
    Judge(kStick, Usb(1005, {8}), Ask::kIfChanged);
    // The daemon would keep the record that it has.
    EXPECT_THAT(Calls(), ElementsAre("update 1005 0", "judge 1005"));
    EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
    Judge(kStick, Usb(1005, {8}), Ask::kIfChanged);
    EXPECT_THAT(Calls(), IsEmpty());
    reporter_->policy_changed();
    allows_ = true;
    Judge(kStick, Usb(1005, {8}), Ask::kIfChanged);
    EXPECT_THAT(Switched(), Contains("open 1-2"));
}

TEST_F(SwitchingTest, RemovalUnderAnotherPolicyIsToldOnce) {
    Judge(kStick, Usb(1005, {8}));
    reporter_->drain();
    reporter_->policy_changed();
    reporter_->removed(kStick);
    EXPECT_THAT(Calls(), ElementsAre("judge 1005", "update 1005 0"));
    // Nobody was told of a device that is nothing but its input devices.
    allows_ = false;
    Judge(kStick, Usb(1005, {3}));
    reporter_->drain();
    reporter_->policy_changed();
    Judge(kStick, Usb(1005, {3}), Ask::kIfChanged);
    EXPECT_THAT(Calls(), ElementsAre("judge 1005", "judge 1005"));
}

TEST_F(SwitchingTest, DaemonThatDiesInsteadOfAnsweringRefuses) {
    reporter_ = std::make_unique<Reporter>(&switches_, Manner(/*fail_closed=*/true));
    const RemoteService remote = Remote(fake_);
    reporter_->set_service(remote.service);
    remote.binder->Die();
    Judge(kStick, Usb(1005, {8}));
    EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
}

TEST_F(SwitchingTest, DevicesThatWentWhileNobodyLookedAreRemoved) {
    DeviceInfo gone = *Usb(1007, {8}).info;
    DeviceInfo other = *Usb(1005, {7}).info;  // the number is another device's by now
    DeviceInfo same = *Usb(1006, {8}).info;
    fake_->devices = {gone, other, same, *Input(3, "").info};
    Judge(kStick, Usb(1005, {8}));
    Judge({"1-3", 1006}, Usb(1006, {8}));
    reporter_->keep_only({{"1005", "1006"}, {}});
    EXPECT_THAT(Calls(), UnorderedElementsAre("update 1005 0", "judge 1005", "judge 1006",
                                              "update 1007 0", "update 3 0"));
    reporter_->keep_only({{"1005", "1006"}, {}});
    EXPECT_THAT(Calls(), IsEmpty());
}

}  // namespace
}  // namespace android::vus::hotplug
