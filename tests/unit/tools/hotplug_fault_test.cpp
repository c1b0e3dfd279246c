// SPDX-License-Identifier: Apache-2.0
//
// Each system call by which a device is looked at, judged and switched fails once, in each way that
// a full disk, a broken one, or a process without descriptors or memory has. What is refused, or
// not judged yet, gets no driver by that, and the next round makes everything as it is to be.

#include "tests/unit/tools/hotplug_fault_fixture.h"

namespace android::vus::hotplug {
namespace {

const FakeDevice kSpeakerWithDisk = {0x0951, 0x1666, "", "Speaker", {{1}, {8}}};
const std::string kAllButThatVendor = Listing("<vid vendorid=\"1921\"/>", "blacklist");

TEST_F(HotplugFaultTest, RefusedDeviceIsHeld) {
    Walk(
            "gate_disk",
            [&](int n, int error) {
                return RunGate(n, error, kAudioOnly, FlashDrive(), false, Bound);
            },
            ExpectNothing);
    Walk(
            "gate_vendor",
            [&](int n, int error) {
                return RunGate(n, error, kAllButThatVendor, FlashDrive(), false, Bound);
            },
            ExpectNothing);
}

TEST_F(HotplugFaultTest, DeviceThatIsRefusedForOneOfItsInterfacesIsHeld) {
    Walk(
            "gate_composite",
            [&](int n, int error) {
                return RunGate(n, error, kAudioOnly, kSpeakerWithDisk, false, Bound);
            },
            ExpectNothing);
}

TEST_F(HotplugFaultTest, RefusedKeyboardIsHeld) {
    Walk(
            "gate_keyboard",
            [&](int n, int error) {
                return RunGate(n, error, kAudioOnly, Keyboard(), false, Inputs);
            },
            ExpectNothing);
}

// The gate does not know the policy: it lets in what the daemon says yes to.
TEST_F(HotplugFaultTest, DeviceThatTheDaemonAllowsIsLetInByTheNextRound) {
    knows_policy_ = false;
    Walk(
            "gate_answered_disk",
            [&](int n, int error) { return RunGate(n, error, kDisks, FlashDrive(), false, Bound); },
            ExpectInTheEnd);
}

TEST_F(HotplugFaultTest, AllowedDeviceIsLetInByTheNextRound) {
    Walk(
            "gate_allowed_disk",
            [&](int n, int error) { return RunGate(n, error, kDisks, FlashDrive(), false, Bound); },
            ExpectInTheEnd);
}

// When the kernel has tried HID's driver, and that failed, it is no input device.
TEST_F(HotplugFaultTest, AllowedKeyboardIsLetInByTheNextRound) {
    int taken_for_none = 0;
    Walk(
            "gate_allowed_keyboard",
            [&](int n, int error) {
                return RunGate(n, error, kKeyboards, Keyboard(), false, Inputs);
            },
            [&](const Outcome& outcome) {
                if (IsWrite(outcome)) {
                    taken_for_none += outcome.in_the_end.empty() ? 1 : 0;
                } else {
                    ExpectInTheEnd(outcome);
                }
            });
    RecordProperty("gate_allowed_keyboard_inevitable", taken_for_none);
    EXPECT_LE(taken_for_none, 2) << "EIO and ENOSPC";
}

TEST_F(HotplugFaultTest, RefusedDeviceThatWasThereLosesItsDrivers) {
    WalkClosing("gate_closing", [&](int n, int error) {
        return RunGate(n, error, kAudioOnly, kSpeakerWithDisk, true, Bound);
    });
    WalkClosing("closing", [&](int n, int error) {
        return RunReporter(n, error, kAudioOnly, kSpeakerWithDisk);
    });
}

TEST_F(HotplugFaultTest, AllowedDeviceKeepsItsDriversOrGetsThemBack) {
    Walk(
            "allowed",
            [&](int n, int error) { return RunReporter(n, error, kDisks, FlashDrive()); },
            ExpectInTheEnd);
}

TEST_F(HotplugFaultTest, DeviceThatIsAllowedByANewPolicyIsOpenedByTheNextRound) {
    Walk(
            "opening",
            [&](int n, int error) {
                SysfsKernel kernel;
                const sp<FakeService> daemon = DaemonWith(kAudioOnly);
                const Subject device = kernel.Plug("1-2", FlashDrive(), /*was_there=*/true);
                return RunOpening(n, error, &kernel, daemon, device);
            },
            ExpectInTheEnd);
}

}  // namespace
}  // namespace android::vus::hotplug
