// SPDX-License-Identifier: Apache-2.0
//
// Hot plug whose system calls fail, one in each run: what a device has afterwards, and what it has
// when the next round is over.

#pragma once

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <variant>
#include <vector>

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

inline constexpr char kClosingsFile[] = "/run/closings/closed";
// What the kernel does not let be looked at, or be switched, stays as it is until the next round:
// the device's directory and its number (opened and read), and the switch of each of its two
// interfaces (opened and written).
inline constexpr int kInevitable = 7;

inline std::string Listing(const std::string& rules, const std::string& mode = "whitelist") {
    return "<usbconfig mode=\"" + mode + "\">" + rules + "</usbconfig>";
}
inline const std::string kAudioOnly = Listing("<class>USB_CLASS_AUDIO</class>");
inline const std::string kDisks = Listing("<class>USB_CLASS_MASS_STORAGE</class>");
inline const std::string kKeyboards = Listing("<class>AINPUT_SOURCE_KEYBOARD</class>");

class HotplugFaultTest : public testing::Test {
  protected:
    struct Outcome {
        bool was_called = false;       // there was an n-th call
        std::string call;              // which it was, with what it was to open
        std::set<std::string> before;  // the round in which it was
        std::set<std::string> after_fault;
        std::set<std::string> in_the_end;
        std::vector<std::string> asked;  // of the daemon
        std::string written_down;        // of what is closed, in the end
    };
    // What is to be looked at, when a round is over.
    using Look = std::function<std::set<std::string>(const SysfsKernel&)>;
    static std::set<std::string> Bound(const SysfsKernel& kernel) { return kernel.Bound(); }
    static std::set<std::string> Inputs(const SysfsKernel& kernel) { return kernel.Inputs(); }
    static std::set<std::string> Authorized(const SysfsKernel& kernel) {
        return kernel.Authorized();
    }

    void SetUp() override { EmptyWorld(); }

    // A daemon that has this policy.
    static sp<FakeService> DaemonWith(const std::string& text) {
        sp<FakeService> daemon = new FakeService;
        daemon->note_lists = false;
        PutInForce(text, daemon);
        return daemon;
    }
    static void PutInForce(const std::string& text, const sp<FakeService>& daemon) {
        WriteFile(kPolicyFile, text);
        WriteFile(kPolicyBackupFile, text + "\n");
        daemon->allow = [policy = std::get<Policy>(parsePolicy(text))](const DeviceInfo& info) {
            const Claim claim = {info.deviceClass, info.interfaceClassList, info.vendorId,
                                 info.productId};
            return judge(claim, PolicyRules(policy)).allowed;
        };
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
                    if (has_written && kernel->Follow()) has_written = false;
                    has_written |= call == SYS_write;
                    if (!armed_) return false;
                    if (++calls == n) outcome.call = NameOf(call, arguments);
                    return true;
                });
        kernel->Follow();
        EXPECT_EQ(OpenDescriptors(), before);
        outcome.was_called = failed.has_value();
        outcome.in_the_end = look(*kernel);
        outcome.written_down = ReadFile(kClosingsFile);
        return outcome;
    }

    static std::string NameOf(int call, const unsigned long long* arguments) {
        const std::string name = "system call " + std::to_string(call);
        const bool has_path = call == SYS_openat || call == SYS_newfstatat;
        return has_path ? name + " of " + TextAt(arguments[1]) : name;
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
    struct Gated {
        explicit Gated(const sp<FakeService>& daemon) { reporter.set_service(daemon); }
        void Judge(const Subject& device, Ask when) {
            actions.judge_usb(device, when);
            reporter.drain();
        }

        Closings closings{kClosingsFile};
        SysfsSwitches switches{[](const std::string&) {}};
        PolicyPreview preview;
        SysfsGateOverFiles system;
        Gate gate{&system, &switches, &preview, [](const std::string&) {}};
        Reporter reporter{&gate, MannerOf(&closings, &gate)};
        const Tracker::Actions actions = gated_actions(&gate, &reporter, [] {});
    };

    // A device comes to a gate, or was there before.
    Outcome RunGate(int n, int error, const std::string& policy, const FakeDevice& plugged,
                    bool was_there, const Look& look) {
        SysfsKernel kernel;
        const sp<FakeService> daemon = DaemonWith(policy);
        if (!knows_policy_) {
            RemoveTree(kPolicyFile);
            RemoveTree(kPolicyBackupFile);
        }
        const Subject device = kernel.Plug("1-2", plugged, was_there);
        Outcome outcome = Run(n, error, &kernel, look, [&](const auto& first_is_over) {
            Gated gated(daemon);
            gated.Judge(device, Ask::kAlways);
            first_is_over();
            next_round(&gated.reporter, [&] { gated.Judge(device, Ask::kIfChanged); });
        });
        outcome.asked = daemon->Take();
        return outcome;
    }

    // The same under another policy: the round that follows from that is the one in which a call
    // fails.
    Outcome RunGateAgain(int n, int error, const std::string& before, const std::string& after,
                         const FakeDevice& plugged, const Look& look) {
        SysfsKernel kernel;
        const sp<FakeService> daemon = DaemonWith(before);
        const Subject device = kernel.Plug("1-2", plugged);
        std::set<std::string> at_first;
        Outcome outcome = Run(
                n, error, &kernel, look,
                [&](const auto& first_is_over) {
                    Gated gated(daemon);
                    gated.Judge(device, Ask::kAlways);
                    at_first = look(kernel);
                    PutInForce(after, daemon);
                    gated.gate.policy_changed();
                    gated.reporter.policy_changed();
                    armed_ = true;
                    gated.Judge(device, Ask::kIfChanged);
                    first_is_over();
                    next_round(&gated.reporter, [&] { gated.Judge(device, Ask::kIfChanged); });
                },
                /*armed=*/false);
        outcome.before = at_first;
        return outcome;
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
        Outcome outcome = Run(n, error, &kernel, Bound, [&](const auto& first_is_over) {
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
        outcome.asked = daemon->Take();
        return outcome;
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
                    EXPECT_THAT(kernel->Bound(), testing::IsEmpty());
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

    // Has each call fail once, in each way, and none at last: run(n, error) tells how it went, and
    // `check` looks at that.
    void Walk(const std::string& what, const std::function<Outcome(int n, int error)>& run,
              const std::function<void(const Outcome&)>& check,
              const std::vector<Fault>& faults = {std::begin(kFaults), std::end(kFaults)}) {
        for (const Fault& fault : faults) {
            const int calls = WalkCalls(what, fault, [&](int n) {
                RemoveTree("/run/closings");
                const Outcome outcome = run(n, fault.error);
                check(outcome);
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
                EXPECT_THAT(outcome.in_the_end, testing::IsEmpty()) << outcome.call;
                left_on += outcome.after_fault.empty() ? 0 : 1;
                return outcome.was_called;
            });
            RecordProperty(what + "_inevitable_" + fault.name, left_on);
            EXPECT_LE(left_on, IsForAMoment(fault) ? 0 : kInevitable) << fault.name;
        }
    }

    static bool IsWrite(const Outcome& outcome) {
        return outcome.call == "system call " + std::to_string(SYS_write);
    }
    static void ExpectNothing(const Outcome& outcome) {
        EXPECT_THAT(outcome.after_fault, testing::IsEmpty()) << outcome.call;
        EXPECT_THAT(outcome.in_the_end, testing::IsEmpty()) << outcome.call;
    }
    static void ExpectInTheEnd(const Outcome& outcome) {
        EXPECT_THAT(outcome.in_the_end, testing::ElementsAre("1-2:1.0")) << outcome.call;
    }
};

}  // namespace android::vus::hotplug
