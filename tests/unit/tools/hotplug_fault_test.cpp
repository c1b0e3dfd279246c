// SPDX-License-Identifier: Apache-2.0
//
// Each system call by which a device is looked at, judged and switched fails once, in each way that
// a full disk, a broken one, or a process without descriptors or memory has. What is refused, or
// not judged yet, gets no driver by that, and the next round makes everything as it is to be.

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <variant>

#include "android/vus/judge.h"
#include "android/vus/paths.h"
#include "tests/support/fault_walk.h"
#include "tests/support/faulty_call.h"
#include "tests/support/world.h"
#include "tests/unit/tools/fake_service.h"
#include "tests/unit/tools/sysfs_kernel.h"
#include "tools/hotplug/device_reader.h"
#include "tools/hotplug/gated_actions.h"
#include "tools/hotplug/sysfs_switches.h"

namespace android::vus::hotplug {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kClosingsFile[] = "/run/closings/closed";
// What the kernel does not let be looked at, or be switched, stays as it is until the next round:
// the device's directory and its number (opened and read), and the switch of each of its two
// interfaces (opened and written).
constexpr int kInevitable = 7;

const FakeDevice kSpeakerWithDisk = {0x0951, 0x1666, "", "Speaker", {{1}, {8}}};

std::string Listing(const std::string& rules, const std::string& mode = "whitelist") {
    return "<usbconfig mode=\"" + mode + "\">" + rules + "</usbconfig>";
}
const std::string kAudioOnly = Listing("<class>USB_CLASS_AUDIO</class>");
const std::string kDisks = Listing("<class>USB_CLASS_MASS_STORAGE</class>");
const std::string kKeyboards = Listing("<class>AINPUT_SOURCE_KEYBOARD</class>");
const std::string kAllButThatVendor = Listing("<vid vendorid=\"1921\"/>", "blacklist");

class HotplugFaultTest : public testing::Test {
  protected:
    struct Outcome {
        bool was_called = false;  // there was an n-th call
        std::string call;         // which it was, with what it was to open
        std::set<std::string> after_fault;
        std::set<std::string> in_the_end;
    };
    // What is to be looked at, when a round is over.
    using Look = std::function<std::set<std::string>(const SysfsKernel&)>;
    static std::set<std::string> Bound(const SysfsKernel& kernel) { return kernel.Bound(); }
    static std::set<std::string> Inputs(const SysfsKernel& kernel) { return kernel.Inputs(); }

    void SetUp() override { EmptyWorld(); }

    // A daemon that has this policy.
    static sp<FakeService> DaemonWith(const std::string& text) {
        WriteFile(kPolicyFile, text);
        WriteFile(kPolicyBackupFile, text + "\n");
        sp<FakeService> daemon = new FakeService;
        daemon->allow = [policy = std::get<Policy>(parsePolicy(text))](const DeviceInfo& info) {
            const Claim claim = {info.deviceClass, info.interfaceClassList, info.vendorId,
                                 info.productId};
            return judge(claim, PolicyRules(policy)).allowed;
        };
        return daemon;
    }

    // Two rounds; in the first the n-th call fails.
    Outcome Run(int n, int error, SysfsKernel* kernel, const Look& look,
                const std::function<void(const std::function<void()>& first_is_over)>& rounds,
                bool armed = true) {
        Outcome outcome;
        armed_ = armed;
        bool has_written = false;
        int calls = 0;
        const size_t before = OpenDescriptors();
        const auto failed = FaultyCall::run(
                n, error,
                [&] {
                    rounds([&] {
                        armed_ = false;
                        outcome.after_fault = look(*kernel);
                    });
                },
                [&](int call, const unsigned long long* arguments) {
                    if (has_written) kernel->Follow();
                    has_written = call == SYS_write;
                    if (!armed_) return false;
                    if (++calls == n) outcome.call = NameOf(call, arguments);
                    return true;
                });
        kernel->Follow();
        EXPECT_EQ(OpenDescriptors(), before);
        outcome.was_called = failed.has_value();
        outcome.in_the_end = look(*kernel);
        return outcome;
    }

    static std::string NameOf(int call, const unsigned long long* arguments) {
        const std::string name = "system call " + std::to_string(call);
        return call == SYS_openat ? name + " of " + TextAt(arguments[1]) : name;
    }

    // Of the thread that waits for its call. Asked of the kernel: a sanitizer does not see that it
    // waits.
    static std::string TextAt(unsigned long long address) {
        char text[256] = {};
        const iovec here = {text, sizeof(text) - 1};
        const iovec there = {reinterpret_cast<void*>(address), here.iov_len};
        process_vm_readv(getpid(), &here, 1, &there, 1, 0);
        return text;
    }

    // A gate, and a reporter that goes by what the daemon says.
    Outcome RunGate(int n, int error, const std::string& policy, const FakeDevice& plugged,
                    bool was_there, const Look& look) {
        SysfsKernel kernel;
        const sp<FakeService> daemon = DaemonWith(policy);
        if (!knows_policy_) {
            RemoveTree(kPolicyFile);
            RemoveTree(kPolicyBackupFile);
        }
        const Subject device = kernel.Plug("1-2", plugged, was_there);
        return Run(n, error, &kernel, look, [&](const std::function<void()>& first_is_over) {
            Closings closings(kClosingsFile);
            SysfsSwitches switches([](const std::string&) {});
            PolicyPreview preview;
            SysfsGateOverFiles system;
            Gate gate(&system, &switches, &preview, [](const std::string&) {});
            Reporter reporter(&gate, MannerOf(&closings, &gate));
            reporter.set_service(daemon);
            const Tracker::Actions actions = gated_actions(&gate, &reporter, [] {});
            actions.judge_usb(device, Ask::kAlways);
            reporter.drain();
            first_is_over();
            next_round(&reporter, [&] { actions.judge_usb(device, Ask::kIfChanged); });
        });
    }

    // As Hotplug has it: nobody looks again without a reason.
    static void next_round(Reporter* reporter, const std::function<void()>& judge) {
        const auto later = Reporter::Clock::now() + std::chrono::hours(1);
        reporter->lose_patience(later);
        reporter->drain();
        if (!reporter->take_another_look(later)) return;
        judge();
        reporter->drain();
    }

    // The same without a gate: what is refused has its drivers until the daemon says so.
    Outcome RunReporter(int n, int error, const std::string& policy, const FakeDevice& plugged) {
        SysfsKernel kernel;
        const sp<FakeService> daemon = DaemonWith(policy);
        const Subject device = kernel.Plug("1-2", plugged, /*was_there=*/true);
        return Run(n, error, &kernel, Bound, [&](const std::function<void()>& first_is_over) {
            Closings closings(kClosingsFile);
            SysfsSwitches switches([](const std::string&) {});
            Reporter reporter(&switches, MannerOf(&closings, nullptr));
            reporter.set_service(daemon);
            const auto read = [device] { return read_usb_device(device); };
            reporter.judge(device, read);
            reporter.drain();
            first_is_over();
            next_round(&reporter, [&] { reporter.judge(device, read, Ask::kIfChanged); });
        });
    }

    // The round that is to open it, because there is another policy, is the one in which a call
    // fails.
    Outcome RunOpening(int n, int error, SysfsKernel* kernel, const sp<FakeService>& daemon,
                       const Subject& device) {
        return Run(
                n, error, kernel, Bound,
                [&](const std::function<void()>& first_is_over) {
                    Closings closings(kClosingsFile);
                    SysfsSwitches switches([](const std::string&) {});
                    Reporter reporter(&switches, MannerOf(&closings, nullptr));
                    reporter.set_service(daemon);
                    const auto judge_it = [&](Ask when) {
                        reporter.judge(
                                device, [device] { return read_usb_device(device); }, when);
                        reporter.drain();
                    };
                    judge_it(Ask::kAlways);
                    EXPECT_THAT(kernel->Bound(), IsEmpty());
                    daemon->allow = [](const DeviceInfo&) { return true; };
                    reporter.policy_changed();
                    armed_ = true;
                    judge_it(Ask::kIfChanged);
                    first_is_over();
                    next_round(&reporter, [&] { judge_it(Ask::kIfChanged); });
                },
                /*armed=*/false);
    }

    static Reporter::Manner MannerOf(Closings* closings, Gate* gate) {
        Reporter::Manner manner;
        manner.fail_closed = true;
        manner.closings = closings;
        manner.answered = [gate](const Subject& device, const Sighting& seen, bool allowed) {
            if (gate != nullptr) gate->answered(device, allowed, seen.incarnation);
        };
        return manner;
    }

    std::atomic<bool> armed_{false};  // calls count
    bool knows_policy_ = true;        // the gate, too

    // Has each call fail once, in each way: run(n, error) tells how it went, and `check` looks at
    // that.
    void Walk(const std::string& what, const std::function<Outcome(int n, int error)>& run,
              const std::function<void(const Outcome&)>& check) {
        for (const Fault& fault : kFaults) {
            const int calls = WalkCalls(what, fault, [&](int n) {
                RemoveTree("/run/closings");
                const Outcome outcome = run(n, fault.error);
                if (outcome.was_called) check(outcome);
                return outcome.was_called;
            });
            EXPECT_GT(calls, 20) << "too few to be true";
        }
    }

    // The same of what is refused, and loses its drivers: it has none in the end, and hardly ever
    // one in between.
    void WalkClosing(const std::string& what, const std::function<Outcome(int n, int error)>& run) {
        for (const Fault& fault : kFaults) {
            int left_on = 0;
            WalkCalls(what, fault, [&](int n) {
                RemoveTree("/run/closings");
                const Outcome outcome = run(n, fault.error);
                EXPECT_THAT(outcome.in_the_end, IsEmpty()) << outcome.call;
                left_on += outcome.after_fault.empty() ? 0 : 1;
                return outcome.was_called;
            });
            RecordProperty(what + "_inevitable_" + fault.name, left_on);
            const bool for_a_moment = fault.error == EMFILE || fault.error == ENOMEM;
            EXPECT_LE(left_on, for_a_moment ? 0 : kInevitable) << fault.name;
        }
    }

    static void ExpectNothing(const Outcome& outcome) {
        EXPECT_THAT(outcome.after_fault, IsEmpty()) << outcome.call;
        EXPECT_THAT(outcome.in_the_end, IsEmpty()) << outcome.call;
    }
    static void ExpectInTheEnd(const Outcome& outcome) {
        EXPECT_THAT(outcome.in_the_end, ElementsAre("1-2:1.0")) << outcome.call;
    }
};

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
                if (outcome.call == "system call " + std::to_string(SYS_write)) {
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
