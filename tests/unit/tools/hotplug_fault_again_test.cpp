// SPDX-License-Identifier: Apache-2.0
//
// What was right before a system call fails: a hub and what hangs on it, what another policy says,
// what has come and gone unheard.

#include "tests/unit/tools/hotplug_fault_fixture.h"
#include "tools/hotplug/look_around.h"

namespace android::vus::hotplug {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

const FakeDevice kHubWithDisk = {0x05e3, 0x0610, "", "Hub", {{9}, {8}}, 9, "", 7};
// It has a disk's driver, and no ports.
const FakeDevice kDiskThatSaysItIsAHub = {0x0781, 0x5583, "", "Hub", {{9, 0, 0, "usb-storage"}}, 9};
const std::string kHubInterface = "1-2:1.0";

class HotplugFaultAgainTest : public HotplugFaultTest {
  protected:
    // A hub is nothing to be asked about, and nothing is kept of it.
    static void ExpectHubInTheEnd(const Outcome& outcome) {
        EXPECT_THAT(outcome.in_the_end, ElementsAre(kHubInterface)) << outcome.call;
        EXPECT_THAT(outcome.asked, IsEmpty()) << outcome.call;
        EXPECT_EQ(outcome.written_down, "") << outcome.call;
    }
    static void ExpectHubAllTheTime(const Outcome& outcome) {
        EXPECT_THAT(outcome.after_fault, ElementsAre(kHubInterface)) << outcome.call;
        ExpectHubInTheEnd(outcome);
    }
    static void ExpectNothingInTheEnd(const Outcome& outcome) {
        EXPECT_THAT(outcome.in_the_end, IsEmpty()) << outcome.call;
    }
    // What was allowed as it is stays on as long as it cannot be read.
    static void ExpectItNoLonger(const Outcome& outcome) {
        EXPECT_THAT(outcome.before, ElementsAre("1-2:1.0"));
        ExpectNothingInTheEnd(outcome);
    }
    static void ExpectItOnceMore(const Outcome& outcome) {
        EXPECT_THAT(outcome.before, IsEmpty());
        ExpectInTheEnd(outcome);
    }

    // Judges what is there, and lets it go.
    static Tracker::Actions PlainActions(Reporter* reporter) {
        Tracker::Actions actions;
        actions.judge_usb = [reporter](const Subject& device, Ask when) {
            reporter->judge(
                    device, [device] { return read_usb_device(device); }, when);
        };
        actions.removed = [reporter](const Subject& device) { reporter->removed(device); };
        return actions;
    }

    // A hub with a disk behind it stays, one disk goes and another one comes, all of it allowed and
    // unheard: then everything is looked at.
    Outcome RunLook(int n, int error) {
        SysfsKernel kernel;
        const sp<FakeService> daemon = DaemonWith(kDisks);
        kernel.Plug("1-1", Hub(), /*was_there=*/true);
        kernel.Plug("1-1.1", FlashDrive(), /*was_there=*/true);
        kernel.Plug("1-2", FlashDrive(), /*was_there=*/true);
        Outcome outcome = Run(
                n, error, &kernel, Bound,
                [&](const auto& first_is_over) {
                    Closings closings(kClosingsFile);
                    SysfsSwitches switches([](const std::string&) {});
                    Reporter reporter(&switches, MannerOf(&closings, nullptr));
                    reporter.set_service(daemon);
                    Tracker tracker(PlainActions(&reporter));
                    const auto look = [&](Ask when) {
                        look_around(when, &tracker, &reporter, nullptr, nullptr);
                        reporter.drain();
                    };
                    look(Ask::kAlways);
                    look(Ask::kAlways);  // what is allowed as it is stays on
                    daemon->Take();
                    kernel.Unplug("1-2");
                    kernel.Plug("1-3", FlashDrive(), /*was_there=*/true);
                    armed_ = true;
                    look(Ask::kIfChanged);
                    first_is_over();
                    next_round(&reporter, [&] { look(Ask::kIfChanged); });
                },
                /*armed=*/false);
        outcome.asked = daemon->Take();
        return outcome;
    }
};

// When the kernel has tried the hub's driver, and that failed, it is no hub.
TEST_F(HotplugFaultAgainTest, HubThatComesIsLetInByTheNextRound) {
    int taken_for_none = 0;
    Walk(
            "gate_hub",
            [&](int n, int error) { return RunGate(n, error, kAudioOnly, Hub(), false, Bound); },
            [&](const Outcome& outcome) {
                if (IsWrite(outcome)) {
                    taken_for_none += outcome.in_the_end.empty() ? 1 : 0;
                } else {
                    ExpectHubInTheEnd(outcome);
                }
            });
    EXPECT_LE(taken_for_none, 2) << "EIO and ENOSPC";
}

TEST_F(HotplugFaultAgainTest, HubThatIsThereStays) {
    Walk(
            "gate_hub_there",
            [&](int n, int error) { return RunGate(n, error, kAudioOnly, Hub(), true, Bound); },
            ExpectHubAllTheTime);
    Walk(
            "hub_there", [&](int n, int error) { return RunReporter(n, error, kAudioOnly, Hub()); },
            ExpectHubAllTheTime);
}

TEST_F(HotplugFaultAgainTest, WhatOnlySaysItIsAHubIsHeld) {
    Walk(
            "gate_no_hub",
            [&](int n, int error) {
                return RunGate(n, error, kAudioOnly, kDiskThatSaysItIsAHub, false, Bound);
            },
            ExpectNothing);
    Walk(
            "gate_no_hub_off",
            [&](int n, int error) {
                return RunGate(n, error, kAudioOnly, kDiskThatSaysItIsAHub, false, Authorized);
            },
            ExpectNothingInTheEnd);
}

TEST_F(HotplugFaultAgainTest, RefusedDeviceThatIsAHubInPartLosesItsDrivers) {
    int left_on = 0;
    Walk(
            "closing_hub_with_disk",
            [&](int n, int error) { return RunReporter(n, error, kAudioOnly, kHubWithDisk); },
            [&](const Outcome& outcome) {
                // The hub stays until it can be told that it is none.
                left_on += static_cast<int>(outcome.after_fault.count("1-2:1.1"));
                ExpectNothingInTheEnd(outcome);
            });
    EXPECT_LE(left_on, 2 * kInevitable) << "EIO and ENOSPC";
}

// Some drivers take whatever is on and has none.
TEST_F(HotplugFaultAgainTest, RefusedKeyboardIsOff) {
    Walk(
            "gate_keyboard_off",
            [&](int n, int error) {
                return RunGate(n, error, kAudioOnly, Keyboard(), false, Authorized);
            },
            ExpectNothingInTheEnd);
}

TEST_F(HotplugFaultAgainTest, WhatANewPolicyRefusesIsShutByTheNextRound) {
    Walk(
            "gate_refused_disk",
            [&](int n, int error) {
                return RunGateAgain(n, error, kDisks, kAudioOnly, FlashDrive(), Bound);
            },
            ExpectItNoLonger);
    int left_to_the_input_side = 0;
    Walk(
            "gate_refused_keyboard",
            [&](int n, int error) {
                return RunGateAgain(n, error, kKeyboards, kAudioOnly, Keyboard(), Inputs);
            },
            [&](const Outcome& outcome) {
                // What has a policy that cannot be read is asked about as the input device it is.
                if (outcome.in_the_end.empty()) {
                    ExpectItNoLonger(outcome);
                } else {
                    ++left_to_the_input_side;
                }
            });
    RecordProperty("gate_refused_keyboard_left_to_the_input_side", left_to_the_input_side);
    EXPECT_LE(left_to_the_input_side, 40) << "10 calls that read the policy and its backup";
}

TEST_F(HotplugFaultAgainTest, WhatANewPolicyAllowsIsLetInByTheNextRound) {
    Walk(
            "gate_allowed_again_disk",
            [&](int n, int error) {
                return RunGateAgain(n, error, kAudioOnly, kDisks, FlashDrive(), Bound);
            },
            ExpectItOnceMore);
    int taken_for_none = 0;
    Walk(
            "gate_allowed_again_keyboard",
            [&](int n, int error) {
                return RunGateAgain(n, error, kAudioOnly, kKeyboards, Keyboard(), Inputs);
            },
            [&](const Outcome& outcome) {
                // As of one that comes.
                if (IsWrite(outcome)) {
                    taken_for_none += outcome.in_the_end.empty() ? 1 : 0;
                } else {
                    ExpectItOnceMore(outcome);
                }
            });
    EXPECT_LE(taken_for_none, 2) << "EIO and ENOSPC";
}

TEST_F(HotplugFaultAgainTest, LookTakesNothingForGoneThatIsThere) {
    Walk(
            "look", [&](int n, int error) { return RunLook(n, error); },
            [](const Outcome& outcome) {
                EXPECT_THAT(outcome.after_fault, IsSupersetOf({"1-1.1:1.0", "1-1:1.0"}))
                        << outcome.call;
                EXPECT_THAT(outcome.in_the_end, ElementsAre("1-1.1:1.0", "1-1:1.0", "1-3:1.0"))
                        << outcome.call;
                EXPECT_THAT(outcome.asked, Contains("update 1004 0")) << outcome.call;
                EXPECT_THAT(outcome.asked, Contains("judge 1005")) << outcome.call;
                EXPECT_THAT(outcome.asked, Each(Not("update 1003 0"))) << outcome.call;
                EXPECT_EQ(outcome.written_down, "") << outcome.call;
            },
            // One that is final, and one that is over in a moment: most calls do nothing but read.
            {kBroken, kNoDescriptors});
}

}  // namespace
}  // namespace android::vus::hotplug
