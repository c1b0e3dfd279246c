// SPDX-License-Identifier: Apache-2.0
//
// Each system call of a load, a reload and a decision fails once, in each way that a full disk, a
// broken one, or a process without descriptors or memory has: a policy stays in force, a good one
// stays on the disk, and what is refused is refused.

#include <errno.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <variant>

#include "android/vus/policy.h"
#include "tests/support/fault_walk.h"
#include "tests/support/faulty_call.h"
#include "watcher_fixture.h"

namespace android::vus {
namespace {

constexpr size_t kEventsRead = 512;  // how much the watcher reads at once, and nobody else
constexpr uint32_t kAudio = 0x01;
constexpr uint32_t kVideo = 0x0E;
constexpr int32_t kStorage = 8;
constexpr int32_t kFirstOfBusOne = 1002;
// The listing; opening and reading the number; opening and writing the switch.
constexpr int kInevitable = 5;
// How a child tells whether the call that was to fail was made.
constexpr int kFailed = 2;
constexpr int kNoSuchCall = 3;

// A watcher of whose calls one fails. It never ends, nor does this object.
class FaultyWatcher {
  public:
    FaultyWatcher(int n, int error) {
        std::thread([this, n, error] {
            FaultyCall::run(
                    n, error, [] { VUsbService::registerFileObserver(nullptr); },
                    [this, n](int call, const unsigned long long* arguments) {
                        return Counts(n, call, arguments);
                    });
        }).detach();
        EXPECT_TRUE(Eventually([&] { return idle_.load(); }));
    }

    // Returns when it has answered what happens in `body`.
    void Answer(const std::function<void()>& body) {
        armed_ = true;
        body();
        // Of this it hears as well: it waits again, with nothing left, after all that came before.
        idle_ = false;
        WriteFile(std::string(kConfigDir) + "/marker", "");
        EXPECT_TRUE(Eventually([&] { return idle_.load(); }));
    }

    bool HasFailed() const { return failed_; }

  private:
    bool Counts(int n, int call, const unsigned long long* arguments) {
        if (call == SYS_read && arguments[2] == kEventsRead) {
            int unread = 0;
            ioctl(static_cast<int>(arguments[0]), FIONREAD, &unread);
            if (unread == 0) idle_ = true;
            return false;
        }
        if (!armed_) return false;
        if (++count_ == n) failed_ = true;
        return true;
    }

    std::atomic<bool> armed_{false};
    std::atomic<bool> idle_{false};
    std::atomic<bool> failed_{false};
    int count_ = 0;
};

class FaultTest : public WatcherTest {
  protected:
    static bool Loads(const char* path) {
        return std::holds_alternative<Policy>(parsePolicy(ReadFile(path)));
    }

    static bool IsInForce(uint32_t code) {
        const PolicyReadLock policy;
        return Util::getMode() == kModeWhitelist && Util::validateClass(code);
    }

    // A watcher that has confirmed the audio policy answers `policy`; the n-th of its calls fails.
    // Then the class is in force, and a good policy on the disk. Returns whether there was an n-th.
    static bool Reload(int n, int error, const char* policy, uint32_t code) {
        const ChildResult result = RunInChild([&] {
            WriteFile(kPolicyFile, kAudioPolicy);
            WriteFile(kPolicyBackupFile, kAudioPolicy);
            WriteFile(kStatusFile, "SUCCESS");
            FaultyWatcher& watcher = *new FaultyWatcher(n, error);  // its threads never end
            watcher.Answer([&] { WriteFile(kPolicyFile, policy); });
            EXPECT_TRUE(IsInForce(code)) << ReadFile(kStatusFile);
            EXPECT_TRUE(Loads(kPolicyFile) || Loads(kPolicyBackupFile)) << "no good policy is left";
            if (!HasFailure()) _exit(watcher.HasFailed() ? kFailed : kNoSuchCall);
        });
        EXPECT_TRUE(result.exit_status == kFailed || result.exit_status == kNoSuchCall)
                << ::testing::PrintToString(result.log);
        return result.exit_status == kFailed;
    }

    // Judges a disk, of which no rule says anything. Returns whether there was an n-th call.
    bool RefuseADisk(int n, int error, bool* left_on) {
        AttachUsbDevice("1-1", 2, {kStorage});
        bool allowed = true;
        const std::optional<int> failed = FaultyCall::run(n, error, [&] {
            service_->isDeviceAllowed(UsbDeviceInfo(kFirstOfBusOne, {kStorage}), &allowed);
        });
        EXPECT_FALSE(allowed);
        *left_on = Authorized("1-1:1.0") != "0";
        return failed.has_value();
    }
};

TEST_F(FaultTest, AGoodPolicyIsTakenOver) {
    for (const Fault& fault : kFaults) {
        EXPECT_GT(WalkCalls("reload", fault,
                            [&](int n) { return Reload(n, fault.error, kVideoPolicy, kVideo); }),
                  15);
    }
}

TEST_F(FaultTest, ABadPolicyIsRolledBack) {
    for (const Fault& fault : kFaults) {
        EXPECT_GT(WalkCalls("rollback", fault,
                            [&](int n) { return Reload(n, fault.error, kBadPolicy, kAudio); }),
                  25);
    }
}

TEST_F(FaultTest, AtAStartTheStatusTellsTheTruth) {
    for (const Fault& fault : kFaults) {
        const int calls = WalkCalls("load", fault, [&](int n) {
            WriteFile(kPolicyFile, kVideoPolicy);
            WriteFile(kPolicyBackupFile, kAudioPolicy);
            WriteFile(kStatusFile, "unknown");
            const auto failed = FaultyCall::run(n, fault.error,
                                                [] { PolicyFiles::loadAtStart(Util::loadFile); });
            EXPECT_EQ(ReadFile(kPolicyFile), kVideoPolicy);
            EXPECT_TRUE(Loads(kPolicyBackupFile)) << ReadFile(kPolicyBackupFile);
            EXPECT_TRUE(IsInForce(kVideo) || ReadFile(kStatusFile) != kStatusSuccess);
            return failed.has_value();
        });
        EXPECT_GT(calls, 15);
    }
}

// Others may give descriptors and memory back: those are asked for again.
TEST_F(FaultTest, WithoutMeansForAMomentARefusedDeviceIsOffNevertheless) {
    LoadPolicy(kAudioPolicy);
    for (const Fault& fault : {kNoDescriptors, kNoMemory}) {
        const int calls = WalkCalls("decision", fault, [&](int n) {
            bool left_on = true;
            const bool failed = RefuseADisk(n, fault.error, &left_on);
            EXPECT_FALSE(left_on);
            return failed;
        });
        EXPECT_GT(calls, 60);
    }
}

// A kernel that does not let the tree be listed, the device's number be read, or its interface be
// switched, has the last word. No other failure does.
TEST_F(FaultTest, WhatCannotBeReadIsRefused) {
    LoadPolicy(kAudioPolicy);
    for (const Fault& fault : {kBroken, kFull}) {
        int left_on = 0;
        const int calls = WalkCalls("decision", fault, [&](int n) {
            bool is_on = false;
            const bool failed = RefuseADisk(n, fault.error, &is_on);
            left_on += is_on ? 1 : 0;
            return failed;
        });
        EXPECT_GT(calls, 60);
        RecordProperty(std::string("decision_inevitable_") + fault.name, left_on);
        EXPECT_LE(left_on, kInevitable);
    }
}

}  // namespace
}  // namespace android::vus
