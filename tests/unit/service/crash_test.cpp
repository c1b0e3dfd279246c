// SPDX-License-Identifier: Apache-2.0
//
// The crash handler, by real crashes in processes of their own.

#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <iterator>
#include <thread>

#include "android/vus/daemon.h"
#include "crash_scenario.h"
#include "service_fixture.h"
#include "tests/support/child_process.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;

constexpr char kBackup[] =
        "<usbconfig mode='whitelist'>\n\n  <class>USB_CLASS_AUDIO</class>\t\n</usbconfig>\n";

class CrashTest : public ServiceTest {
  protected:
    void SetUp() override {
        ServiceTest::SetUp();
        WriteFile(kPolicyFile, "<usbconfig mode='blacklist'/> that crashes");
        WriteFile(kPolicyBackupFile, kBackup);
        WriteFile(kStatusFile, "SUCCESS");
    }

    ChildResult Crash(const std::function<void()>& how) {
        return RunInChild([&] {
            installCrashHandler();
            how();
        });
    }

    // Returns as soon as a watcher has confirmed the policy. A write before it watches is not seen.
    static void WriteUntilConfirmed(const std::string& policy) {
        WriteFile(kStatusFile, "");
        do {
            WriteFile(kPolicyFile, policy);
        } while (!WaitFor([] { return ReadFile(kStatusFile) == "SUCCESS"; },
                          std::chrono::milliseconds(200)));
    }

    static void ExpectRolledBack() {
        EXPECT_EQ(ReadFile(kPolicyFile), kBackup);
        EXPECT_EQ(ReadFile(kStatusFile), kCrashStatus);
    }
};

TEST_F(CrashTest, AnAbortEndsWithSix) {
    const ChildResult child = Crash([] { abort(); });
    EXPECT_EQ(child.exit_status, 6);
    ExpectRolledBack();
    EXPECT_EQ(child.log.front(), "I Segmentation faultsignum6");
}

TEST_F(CrashTest, ASegmentationFaultEndsWithElevenAndNotByTheSignal) {
    const ChildResult child = Crash(CrashByWildPointer);
    EXPECT_EQ(child.exit_status, 11);
    EXPECT_EQ(child.signal, 0);
    ExpectRolledBack();
    EXPECT_EQ(child.log.front(), "I Segmentation faultsignum11");
}

TEST_F(CrashTest, AFatalLogLineComesFirst) {
    const ChildResult child = Crash([] { LOG(FATAL) << "the end"; });
    EXPECT_EQ(child.exit_status, 6);
    EXPECT_EQ(child.log[0], "F the end");
    EXPECT_EQ(child.log[1], "I Segmentation faultsignum6");
    ExpectRolledBack();
}

TEST_F(CrashTest, LogsInOrder) {
    const ChildResult child = Crash([] { raise(SIGABRT); });
    std::vector<std::string> head;
    std::vector<std::string> frames;
    bool in_trace = false;
    for (const std::string& line : child.log) {
        (in_trace ? frames : head).push_back(line);
        if (line == "I Stack Trace") in_trace = true;
    }
    // A text with a line feed at its end is logged as two lines.
    EXPECT_THAT(head, ElementsAre("I Segmentation faultsignum6", "I ",
                                  "I  USB xml src path is " + std::string(kPolicyBackupFile),
                                  "I USB xml dest path is " + std::string(kPolicyFile),
                                  "I <usbconfig mode='whitelist'>", "I ",
                                  "I   <class>USB_CLASS_AUDIO</class>\t", "I </usbconfig>",
                                  "I Usb Device config file copied successfully..!!",
                                  "I updateErrorFile called with error message : " +
                                          std::string(kCrashStatus),
                                  "I Stack Trace"));
    ASSERT_GE(frames.size(), 3u);
    EXPECT_EQ(frames[0], "I ");
    EXPECT_THAT(frames[1], StartsWith("E #00 pc "));
    EXPECT_THAT(frames[2], StartsWith("E #01 pc "));
}

TEST_F(CrashTest, TheStackTraceLeadsToTheCrash) {
    const ChildResult child = Crash(CrashByWildPointer);
    EXPECT_THAT(child.log, Contains(HasSubstr("signalHandler")));
    EXPECT_THAT(child.log, Contains(HasSubstr("CrashByWildPointer")));
}

TEST_F(CrashTest, WithoutABackupThePolicyIsEmptied) {
    RemoveFile(kPolicyBackupFile);
    const ChildResult child = Crash([] { abort(); });
    EXPECT_EQ(child.exit_status, 6);
    EXPECT_EQ(ReadFile(kPolicyFile), "");
    EXPECT_EQ(ReadFile(kStatusFile), kCrashStatus);
}

TEST_F(CrashTest, WithoutTheDirectoryItStillReportsAndEnds) {
    RemoveTree(kConfigDir);
    const ChildResult child = Crash([] { abort(); });
    EXPECT_EQ(child.exit_status, 6);
    EXPECT_THAT(child.log, Contains("I Stack Trace"));
}

TEST_F(CrashTest, ExitHandlersRun) {
    const ChildResult child = Crash([] {
        atexit([] { LOG(INFO) << "exit handler"; });
        abort();
    });
    EXPECT_EQ(child.log.back(), "I exit handler");
}

TEST_F(CrashTest, AFailedFatalCheckIsACrash) {
    const ChildResult child =
            Crash([&] { new VUsbService::CallbackDeathRecipient(nullptr, service_.get()); });
    EXPECT_EQ(child.exit_status, 6);
    EXPECT_EQ(child.log.front(), "F Check failed: callback_.get() ");
    ExpectRolledBack();
}

TEST_F(CrashTest, ACheckThatFailsWithTheLockHeldIsACrashLikeAnyOther) {
    const ChildResult child = Crash([&] {
        const sp<RecordingCallback> object = new RecordingCallback;
        const sp<FakeRemoteBinder> binder = new FakeRemoteBinder(object);
        const auto proxy = interface_cast<IVUsbServiceCallback>(sp<IBinder>(binder));
        const sp<VUsbService::CallbackDeathRecipient> recipient =
                new VUsbService::CallbackDeathRecipient(proxy, service_.get());
        recipient->binderDied(wp<IBinder>(binder));
    });
    EXPECT_EQ(child.exit_status, 6);
    EXPECT_THAT(child.log, Contains("F Check failed: iter != owner_->callbacks_.end() "));
    ExpectRolledBack();
}

TEST_F(CrashTest, AnyThreadMayCrash) {
    const ChildResult child = Crash([] { std::thread(CrashByWildPointer).join(); });
    EXPECT_EQ(child.exit_status, 11);
    ExpectRolledBack();
}

// Not for the sanitizers: they hold back signals, they need /proc at the end, and they see that
// exit destroys the tables that the other threads work on, which the crash cannot wait for.
#ifndef VUS_SANITIZED
// Without /proc the unwinder does not learn what is mapped where.
TEST_F(CrashTest, AStackThatCannotBeUnwoundIsLoggedAndTheEndIsTheSame) {
    const ChildResult child = Crash([] {
        ASSERT_EQ(unshare(CLONE_NEWNS), 0) << strerror(errno);
        ASSERT_EQ(umount2("/proc", MNT_DETACH), 0) << strerror(errno);
        abort();
    });
    EXPECT_EQ(child.exit_status, 6);
    ExpectRolledBack();
    const auto failure = std::find(child.log.begin(), child.log.end(),
                                   "E signalHandler: Failed to unwind callstack.");
    ASSERT_NE(failure, child.log.end());
    EXPECT_EQ(*std::next(failure), "I Stack Trace");
}

TEST_F(CrashTest, TheEndOfAHandlerThatHangsHasItsStatus) {
    const ChildResult child = Crash([] {
        atexit([] {
            ualarm(1000, 0);  // sooner than the handler has set it
            while (true) pause();
        });
        abort();
    });
    EXPECT_EQ(child.exit_status, 6);
    EXPECT_EQ(child.signal, 0);
}

TEST_F(CrashTest, WhileOtherThreadsAreAtWork) {
    const ChildResult child = Crash([&] {
        std::atomic<int> turns{0};
        std::vector<std::thread> threads;
        for (int id = 0; id < 4; ++id) {
            threads.emplace_back([&, id] {
                while (true) {
                    service_->addDeviceList(InputDevice(id, 0x101), true, "");
                    List();
                    service_->updateDeviceList(InputDevice(id, 0x101), 0);
                    ++turns;
                }
            });
        }
        EXPECT_TRUE(WaitFor([&] { return turns >= 100; }));
        abort();
    });
    EXPECT_EQ(child.exit_status, 6);
    ExpectRolledBack();
}

#endif

TEST_F(CrashTest, OfTwoThreadsThatCrashOnlyOneReports) {
    for (int round = 0; round < 10; ++round) {
        SetUp();
        const ChildResult child = Crash([] {
            std::atomic<int> ready{0};
            const auto crash = [&] {
                ++ready;
                while (ready < 2) {
                }
                CrashByWildPointer();
            };
            std::thread other(crash);
            crash();
        });
        EXPECT_EQ(child.exit_status, 11);
        EXPECT_EQ(std::count(child.log.begin(), child.log.end(), "I Segmentation faultsignum11"),
                  1);
        ExpectRolledBack();
    }
}

TEST_F(CrashTest, TheWatcherDoesNotAnswerTheRollBack) {
    const ChildResult child = Crash([&] {
        // Time enough for the watcher to see that the policy was written.
        atexit([] { std::this_thread::sleep_for(std::chrono::milliseconds(200)); });
        std::thread watcher([] { VUsbService::registerFileObserver(nullptr); });
        WriteUntilConfirmed(kBackup);
        abort();
    });
    EXPECT_EQ(child.exit_status, 6);
    ExpectRolledBack();
}

TEST_F(CrashTest, AReloadUnderWayIsNotMixedWithTheRollBack) {
    // So large that confirming it takes a while.
    std::string policy = "<usbconfig mode='default'>\n";
    for (int line = 0; line < 2000; ++line) policy += "<!-- " + std::to_string(line) + " -->\n";
    policy += "</usbconfig>\n";
    for (int round = 0; round < 5; ++round) {
        SetUp();
        WriteFile(kPolicyBackupFile, policy);
        const ChildResult child = Crash([&] {
            std::thread watcher([] { VUsbService::registerFileObserver(nullptr); });
            WriteUntilConfirmed(policy);
            abort();  // while the backup is being written
        });
        EXPECT_EQ(child.exit_status, 6);
        EXPECT_EQ(ReadFile(kPolicyFile), policy);
        EXPECT_EQ(ReadFile(kPolicyBackupFile), policy);
        EXPECT_EQ(ReadFile(kStatusFile), kCrashStatus);
    }
}

TEST_F(CrashTest, AHandlerThatHangsIsGivenAnEnd) {
    const ChildResult child = Crash([] {
        atexit([] { LOG(INFO) << (alarm(0) > 0 ? "an end is set" : "no end"); });
        abort();
    });
    EXPECT_EQ(child.log.back(), "I an end is set");
}

TEST_F(CrashTest, TheHandlerIsInstalledForBothSignalsWithNothingElse) {
    ExpectPassesInChild([] {
        installCrashHandler();
        for (const int signal : {SIGSEGV, SIGABRT}) {
            struct sigaction action = {};
            ASSERT_EQ(sigaction(signal, nullptr, &action), 0);
            EXPECT_EQ(action.sa_sigaction, &signalHandler);
            EXPECT_EQ(action.sa_flags & ~0x04000000 /* SA_RESTORER, the C library's */, SA_SIGINFO);
            for (int blocked = 1; blocked < NSIG; ++blocked) {
                EXPECT_EQ(sigismember(&action.sa_mask, blocked), 0) << blocked;
            }
        }
    });
}

}  // namespace
}  // namespace android::vus
