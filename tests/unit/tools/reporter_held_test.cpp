// SPDX-License-Identifier: Apache-2.0
//
// What is reported of devices that a gate holds back, and what follows from the answers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/tools/switching_fixture.h"

namespace android::vus::hotplug {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

const Subject kHeldInput = {"input1000256769"};
constexpr char kBehind[] = "1-2:1.1";

Sighting Held(Sighting seen) {
    seen.held = true;
    seen.bare = false;
    return seen;
}

Sighting HeldKeyboard() {
    Sighting seen = Held(Input(1000256769, kBehind));
    seen.usb_device = kStick;
    return seen;
}

class ReporterHeldTest : public SwitchingTest {
  protected:
    // An input device that the policy allows, while the daemon, `asked`, is silent until `answer`.
    void ExpectHeardBesideSilence(std::promise<void>* asked, std::promise<void>* answer) {
        Sighting heard = Input(5, kHid);
        heard.vouched = true;
        Judge(kInputDevice, heard);
        asked->get_future().wait();
        reporter_->lose_patience(start_ + std::chrono::hours(1));
        answer->set_value();
        EXPECT_THAT(Switched(), IsEmpty());
        EXPECT_THAT(Notices(), IsEmpty());
    }
};

TEST_F(ReporterHeldTest, RefusedDeviceIsSeenToAndStaysHeld) {
    allows_ = false;
    Judge(kStick, Held(Usb(1005, {8})));
    EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
    EXPECT_THAT(Notices(), IsEmpty());
}

TEST_F(ReporterHeldTest, WhatWasJustSeenToBeOffIsNotLookedAtAgain) {
    allows_ = false;
    Sighting stick = Held(Usb(1005, {8}));
    stick.off = true;
    Judge(kStick, stick);
    EXPECT_THAT(Calls(), ElementsAre("judge 1005"));
    EXPECT_THAT(Switched(), IsEmpty());
    // Somebody has switched one on.
    stick.off = false;
    Judge(kStick, stick);
    EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
}

TEST_F(ReporterHeldTest, AllowedDeviceIsLetInAndReportedAsWhatItBecame) {
    Judge(kStick, Held(Usb(1005, {8})));
    EXPECT_THAT(Switched(), ElementsAre("open 1-2"));
    EXPECT_THAT(Notices(), ElementsAre("opened 1-2"));
    EXPECT_THAT(Calls(), ElementsAre("judge 1005"));
    Judge(kStick, Usb(1005, {8}), Ask::kIfChanged);
    EXPECT_THAT(Calls(), ElementsAre("update 1005 0", "judge 1005"));
    Judge(kStick, Usb(1005, {8}), Ask::kIfChanged);
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(Switched(), IsEmpty());
}

TEST_F(ReporterHeldTest, RefusedInputDeviceIsListedAndNothingIsSwitched) {
    allows_ = false;
    Judge(kHeldInput, HeldKeyboard());
    EXPECT_THAT(Calls(), ElementsAre("judge 1000256769"));
    EXPECT_THAT(Switched(), IsEmpty());
    EXPECT_THAT(Notices(), ElementsAre("held 1-2:1.1"));
    // Another one is held at the same port by now.
    const Subject successor = {"input1000257025"};
    Judge(successor, Held(Input(1000257025, kBehind)));
    reporter_->held_no_more(kHeldInput);
    EXPECT_THAT(Calls(), UnorderedElementsAre("judge 1000257025", "update 1000256769 0"));
    reporter_->hid_removed(kBehind);
    EXPECT_THAT(Calls(), ElementsAre("update 1000257025 0"));
}

TEST_F(ReporterHeldTest, AllowedInputDeviceIsLetInAndWillBeAnother) {
    Judge(kHeldInput, HeldKeyboard());
    EXPECT_THAT(Switched(), ElementsAre("let in 1-2:1.1 of 1-2"));
    EXPECT_THAT(Calls(), ElementsAre("judge 1000256769", "update 1000256769 0"));
    EXPECT_THAT(Notices(), ElementsAre("opened 1-2:1.1"));
}

TEST_F(ReporterHeldTest, AnotherOneThatIsHeldAtThatPortIsAskedAbout) {
    allows_ = false;
    Sighting seen = HeldKeyboard();
    seen.incarnation = 1;
    Judge(kHeldInput, seen);
    Judge(kHeldInput, seen, Ask::kIfChanged);
    EXPECT_THAT(Calls(), ElementsAre("judge 1000256769"));
    seen.incarnation = 2;
    Judge(kHeldInput, seen, Ask::kIfChanged);
    EXPECT_THAT(Calls(), ElementsAre("update 1000256769 0", "judge 1000256769"));
}

TEST_F(ReporterHeldTest, LettingInForgetsNothingOfTheNextOneAtThatPort) {
    Sighting seen = HeldKeyboard();
    seen.incarnation = 1;
    switches_.when_let_in = [this, next = seen]() mutable {
        allows_ = false;
        next.incarnation = 2;
        Judge(kHeldInput, next);
    };
    Judge(kHeldInput, seen);
    EXPECT_THAT(Calls(),
                ElementsAre("judge 1000256769", "update 1000256769 0", "judge 1000256769"));
    reporter_->hid_removed(kBehind);
    EXPECT_THAT(Calls(), ElementsAre("update 1000256769 0"));
}

TEST_F(ReporterHeldTest, SilencedInputDeviceSpeaksWhenItIsAllowed) {
    reporter_->came_silenced(kInputDevice);
    Judge(kInputDevice, Input(5, kHid));
    EXPECT_THAT(Switched(), ElementsAre("unhush input5"));
    reporter_->came_silenced({"input6"});
    allows_ = false;
    Judge({"input6"}, Input(6, kHid));
    EXPECT_THAT(Switched(), ElementsAre("hush input6", std::string("unbind ") + kHid));
}

// Found, and judged, before the kernel's word that it has come was heard.
TEST_F(ReporterHeldTest, InputDeviceThatIsAnnouncedAfterItsVerdictIsHeardAgain) {
    Judge(kInputDevice, Input(5, kHid));
    EXPECT_THAT(Calls(), ElementsAre("judge 5"));
    reporter_->came_silenced(kInputDevice);
    Judge(kInputDevice, Input(5, kHid));
    EXPECT_THAT(Switched(), ElementsAre("unhush input5"));
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ReporterHeldTest, VerdictsAreHeardBeforeTheyAreFollowed) {
    std::vector<std::string> heard;
    Reporter::Manner manner = Manner(/*fail_closed=*/true);
    manner.answered = [&](const Subject& device, const Sighting& /*seen*/, bool allowed) {
        heard.push_back(device.name + (allowed ? " yes" : " no"));
        heard.push_back(std::to_string(switches_.Take().size()) + " switched");
    };
    reporter_ = std::make_unique<Reporter>(&switches_, manner);
    reporter_->set_service(fake_);
    Judge(kStick, Held(Usb(1005, {8})));
    reporter_->drain();
    allows_ = false;
    Judge(kHeldInput, HeldKeyboard());
    Judge({"1-3", 1006}, Usb(1006, {kHidClass}));  // the input side's
    reporter_->drain();
    reporter_.reset();
    EXPECT_THAT(heard, ElementsAre("1-2 yes", "0 switched", "input1000256769 no", "1 switched"));
}

TEST_F(ReporterHeldTest, SilenceDoesNotCloseWhatThePolicyHasLetIn) {
    std::promise<void> asked;
    std::promise<void> answer = Stall(&asked);
    Sighting let_in = Usb(1005, {8});
    let_in.vouched = true;
    Judge(kStick, let_in);
    asked.get_future().wait();
    allows_ = false;
    reporter_->lose_patience(start_ + std::chrono::hours(1));
    answer.set_value();
    EXPECT_THAT(Switched(), ElementsAre("close 1-2")) << "a refusal does";
    EXPECT_THAT(Notices(), IsEmpty());
}

TEST_F(ReporterHeldTest, SilenceDoesNotHushAnInputDeviceThatThePolicyAllows) {
    std::promise<void> asked;
    std::promise<void> answer = Stall(&asked);
    ExpectHeardBesideSilence(&asked, &answer);
}

// What it is asked for first is its list.
TEST_F(ReporterHeldTest, NorDoesADaemonThatDoesNotEvenList) {
    std::promise<void> asked, answer;
    fake_->list_hook = [&] {
        asked.set_value();
        answer.get_future().wait();
    };
    ExpectHeardBesideSilence(&asked, &answer);
}

TEST_F(ReporterHeldTest, SilenceTakesNoYesBackThatIsOnlyLookedAfter) {
    bool woken = false;
    Reporter::Manner manner = Manner(/*fail_closed=*/true);
    manner.wake = [&woken] { woken = true; };
    reporter_ = std::make_unique<Reporter>(&switches_, manner);
    reporter_->set_service(fake_);
    reporter_->judge_here(
            kStick, [] { return Usb(1005, {8}); }, Ask::kAlways);
    EXPECT_TRUE(std::exchange(woken, false)) << "an answer is due";
    reporter_->judge_here(
            kStick,
            [this] {
                // It takes its time.
                reporter_->lose_patience(start_ + std::chrono::hours(1));
                return Usb(1005, {8});
            },
            Ask::kIfChanged);
    EXPECT_FALSE(woken);
    EXPECT_THAT(Switched(), IsEmpty());
    EXPECT_THAT(Notices(), IsEmpty());
    reporter_.reset();
}

}  // namespace
}  // namespace android::vus::hotplug
