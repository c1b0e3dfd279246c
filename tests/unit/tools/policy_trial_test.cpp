// SPDX-License-Identifier: Apache-2.0
//
// A policy on trial, with a guard that is a real process.

#include "tools/vusctl/policy_trial.h"

#include <android-base/unique_fd.h>
#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <sstream>

#include "android/vus/paths.h"
#include "tests/support/world.h"
#include "tests/unit/tools/client_fixture.h"
#include "tests/unit/tools/fake_watcher.h"

namespace android::vus::ctl {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr char kOld[] = "<usbconfig mode=\"default\"/>\n";
constexpr char kNew[] = "<usbconfig mode=\"whitelist\"/>\n";
constexpr char kTrial[] = "/data/system/usbdeviceconfig/usb_device_config.trial";
constexpr char kReplacement[] = "/data/system/usbdeviceconfig/usb_device_config.new";
constexpr seconds kLong(600);
constexpr seconds kSoon(10);

// Hears when the policy is written in place, as the daemon does.
class PolicyWatch {
  public:
    PolicyWatch() : inotify_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        inotify_add_watch(inotify_.get(), kConfigDir, IN_CLOSE_WRITE);
    }

    bool WrittenWithin(seconds limit) {
        const auto deadline = steady_clock::now() + limit;
        while (!Read()) {
            const auto left =
                    std::chrono::ceil<std::chrono::milliseconds>(deadline - steady_clock::now());
            if (left.count() <= 0) return false;
            pollfd source = {inotify_.get(), POLLIN, 0};
            poll(&source, 1, static_cast<int>(left.count()));
        }
        return true;
    }

  private:
    bool Read() {
        alignas(inotify_event) char buffer[4096];
        const ssize_t length = read(inotify_.get(), buffer, sizeof(buffer));
        bool found = false;
        for (ssize_t at = 0; at < length;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
            found |= std::string(event->name) == kPolicyFileName;
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
        return found;
    }

    const base::unique_fd inotify_;
};

class TrialTest : public testing::Test {
  protected:
    void SetUp() override {
        EmptyWorld();
        WriteFile(kPolicyFile, kOld);
        WriteFile(kPolicyBackupFile, kOld);
    }
    // No guard outlives its test.
    void TearDown() override { EndGuard(SIGTERM); }

    int Try(seconds time) {
        const int status = try_policy(kNew, time, out_, err_);
        trial_.reset(open(kTrial, O_RDONLY | O_CLOEXEC));
        return status;
    }
    // A trial that has begun: the daemon has loaded the policy, and has its copy.
    void Begin(seconds time) {
        const FakeWatcher watcher({"SUCCESS"});
        ASSERT_EQ(Try(time), kDone) << err_.str();
        WriteFile(kPolicyBackupFile, kNew);
    }
    // Ends the guard, and waits until it lets go of the trial file: it has it open until its end.
    void EndGuard(int signal) {
        if (!trial_.ok()) return;
        for (const auto& process : std::filesystem::directory_iterator("/proc")) {
            const int pid = atoi(process.path().filename().c_str());
            if (pid > 0 && pid != getpid() && HasTrialOpen(process.path())) kill(pid, signal);
        }
        flock(trial_.get(), LOCK_EX);
        trial_.reset();
    }
    // The file itself: another program of these tests has one of the same name in its own root.
    bool HasTrialOpen(const std::filesystem::path& process) const {
        struct stat trial = {};
        EXPECT_EQ(fstat(trial_.get(), &trial), 0);
        std::error_code error;
        for (std::filesystem::directory_iterator fd(process / "fd", error), end;
             !error && fd != end; fd.increment(error)) {
            struct stat open = {};
            if (stat(fd->path().c_str(), &open) != 0) continue;
            if (open.st_dev == trial.st_dev && open.st_ino == trial.st_ino) return true;
        }
        return false;
    }

    base::unique_fd trial_;
    std::ostringstream out_, err_;
};

TEST_F(TrialTest, IsInForceWhileTheLastGoodPolicyIsOnDisk) {
    Begin(kLong);
    EXPECT_EQ(out_.str(), "SUCCESS\non trial for 600 s: vusctl policy keep keeps it\n");
    EXPECT_EQ(ReadFile(kPolicyFile), kOld);
    EXPECT_EQ(ReadFile(kTrial), kNew);
}

TEST_F(TrialTest, IsTakenBackWhenTheTimeIsOver) {
    PolicyWatch watch;
    Begin(seconds(1));
    ASSERT_TRUE(watch.WrittenWithin(kSoon));  // the trial itself
    ASSERT_TRUE(watch.WrittenWithin(kSoon));
    EndGuard(0);
    EXPECT_EQ(ReadFile(kPolicyFile), kOld);
    EXPECT_NE(access(kTrial, F_OK), 0);
}

TEST_F(TrialTest, IsTakenBackAtOnceWhenTheGuardIsToldToEnd) {
    Begin(kLong);
    PolicyWatch watch;
    EndGuard(SIGTERM);
    EXPECT_TRUE(watch.WrittenWithin(seconds(0)));
    EXPECT_EQ(ReadFile(kPolicyFile), kOld);
}

TEST_F(TrialTest, IsTakenBackWhenVusctlIsKilledBeforeItBegan) {
    PolicyWatch watch;
    const pid_t vusctl = fork();
    if (vusctl == 0) {
        // Nobody answers: it waits for the daemon when it dies.
        try_policy(kNew, kLong, out_, err_);
        _exit(0);
    }
    ASSERT_TRUE(watch.WrittenWithin(kSoon));
    EXPECT_EQ(ReadFile(kPolicyFile), kNew);
    kill(vusctl, SIGKILL);
    waitpid(vusctl, nullptr, 0);
    ASSERT_TRUE(watch.WrittenWithin(kSoon));
    EXPECT_EQ(ReadFile(kPolicyFile), kOld);
}

TEST_F(TrialTest, IsKeptWithoutTheDaemonsReadingItAgain) {
    Begin(kLong);
    PolicyWatch watch;
    EXPECT_EQ(keep_policy(out_, err_), kDone) << err_.str();
    EXPECT_EQ(ReadFile(kPolicyFile), kNew);
    EXPECT_NE(access(kTrial, F_OK), 0);
    EndGuard(SIGTERM);
    EXPECT_FALSE(watch.WrittenWithin(seconds(0)));
    EXPECT_EQ(ReadFile(kPolicyFile), kNew);
}

TEST_F(TrialTest, CannotBeKeptWhenTheDaemonHasStartedAnew) {
    Begin(kLong);
    WriteFile(kPolicyBackupFile, kOld);  // the copy of what it found on disk
    EXPECT_EQ(keep_policy(out_, err_), kRefused);
    EXPECT_EQ(err_.str(), "vusctl: too late: the daemon has loaded another policy since\n");
    EXPECT_EQ(ReadFile(kPolicyFile), kOld);
}

TEST_F(TrialTest, PolicyThatSomebodyElseWroteIsLeftAlone) {
    Begin(kLong);
    const std::string third = "<usbconfig mode=\"blacklist\"/>";
    WriteFile(kPolicyFile, third);
    EndGuard(SIGTERM);
    EXPECT_EQ(ReadFile(kPolicyFile), third);
}

TEST_F(TrialTest, IsTakenBackFromWhereACrashOfTheDaemonPutIt) {
    Begin(kLong);
    WriteFile(kPolicyFile, kNew);
    EndGuard(SIGTERM);
    EXPECT_EQ(ReadFile(kPolicyFile), kOld);
}

TEST_F(TrialTest, EndsWithoutATraceWhenAPolicyIsPutInForceForGood) {
    Begin(kLong);
    end_trial();
    WriteFile(kPolicyFile, kNew);
    EndGuard(SIGTERM);
    EXPECT_EQ(ReadFile(kPolicyFile), kNew);
}

TEST_F(TrialTest, KeepWithoutATrialIsSaid) {
    EXPECT_EQ(keep_policy(out_, err_), kRefused);
    EXPECT_EQ(err_.str(), "vusctl: no policy is on trial\n");
    EXPECT_EQ(ReadFile(kPolicyFile), kOld);
}

TEST_F(TrialTest, IsOneAtATime) {
    Begin(kLong);
    EXPECT_EQ(try_policy(kOld, kLong, out_, err_), kFailed);
    EXPECT_EQ(err_.str(), "vusctl: another policy is on trial: vusctl policy keep keeps it\n");
    EXPECT_EQ(ReadFile(kTrial), kNew);
}

TEST_F(TrialTest, PolicyThatTheDaemonRejectsIsNotTakenBackASecondTime) {
    const FakeWatcher watcher({"INVALID MODE"});
    EXPECT_EQ(Try(kLong), kRefused);
    PolicyWatch watch;
    EndGuard(0);
    EXPECT_FALSE(watch.WrittenWithin(seconds(0)));
    EXPECT_NE(access(kTrial, F_OK), 0);
}

// Its guard was killed: the disk has the last good policy, and the tried one is in force still.
TEST_F(TrialTest, NextOneEndsWithThePolicyFromBeforeTheFirst) {
    Begin(kLong);
    EndGuard(SIGKILL);
    EXPECT_EQ(ReadFile(kPolicyFile), kOld);
    EXPECT_EQ(keep_policy(out_, err_), kRefused);
    PolicyWatch watch;
    Begin(seconds(1));
    ASSERT_TRUE(watch.WrittenWithin(kSoon));
    ASSERT_TRUE(watch.WrittenWithin(kSoon));
    EndGuard(0);
    EXPECT_EQ(ReadFile(kPolicyFile), kOld);
}

TEST_F(TrialTest, NeedsToKnowWhatItTakesBack) {
    WriteFile(kPolicyBackupFile, kNew);
    EXPECT_EQ(Try(kLong), kFailed);
    EXPECT_THAT(err_.str(), testing::StartsWith("vusctl: not tried: the file on disk is not the "));
    EXPECT_EQ(ReadFile(kPolicyFile), kOld);
    EXPECT_NE(access(kTrial, F_OK), 0);
}

TEST_F(TrialTest, OwnerAndModeOfThePolicyStay) {
    ASSERT_EQ(chmod(kPolicyFile, 0640), 0);
    Begin(kLong);
    EXPECT_EQ(keep_policy(out_, err_), kDone);
    struct stat file = {};
    ASSERT_EQ(stat(kPolicyFile, &file), 0);
    EXPECT_EQ(file.st_mode & 07777, 0640u);
}

// Any member of the directory's group keeps what another tries, and tries after one whose machine
// went down within a trial; whatever is usual for the files of whoever began.
TEST_F(TrialTest, IsTheGroups) {
    for (const mode_t usual : {mode_t{077}, mode_t{022}}) {
        const mode_t before = umask(usual);
        Begin(kLong);
        EXPECT_EQ(umask(before), usual);
        struct stat file = {};
        ASSERT_EQ(stat(kTrial, &file), 0);
        EXPECT_EQ(file.st_mode & 07777, 0660u);
        EXPECT_EQ(keep_policy(out_, err_), kDone) << err_.str();
        EndGuard(SIGTERM);
        SetUp();
    }
}

TEST_F(TrialTest, ThatCannotBeOpenedIsNotDenied) {
    ASSERT_EQ(symlink("/data/elsewhere", kTrial), 0);
    EXPECT_EQ(keep_policy(out_, err_), kFailed);
    EXPECT_EQ(err_.str(),
              std::string("vusctl: cannot open ") + kTrial + ": " + strerror(ELOOP) + "\n");
}

// It may be another member's, who was killed: nothing is written into it.
TEST_F(TrialTest, WhatWasLeftInTheWayIsRemoved) {
    WriteFile("/data/victim", "theirs");
    using Leave = int (*)(const char*, const char*);
    for (const Leave leave : {Leave{link}, Leave{symlink}}) {
        ASSERT_EQ(leave("/data/victim", kReplacement), 0);
        Begin(kLong);
        ASSERT_EQ(leave("/data/victim", kReplacement), 0);
        EXPECT_EQ(keep_policy(out_, err_), kDone) << err_.str();
        EXPECT_EQ(ReadFile(kPolicyFile), kNew);
        EXPECT_EQ(ReadFile("/data/victim"), "theirs");
        EndGuard(SIGTERM);
        WriteFile(kPolicyFile, kOld);
        WriteFile(kPolicyBackupFile, kOld);
    }
}

class TryCommandTest : public ClientTest {};

TEST_F(TryCommandTest, SaysWhatIsWrong) {
    WriteFile("/data/bad.xml", "<usbconfig mode=\"x\"/>");
    WriteFile("/data/good.xml", kNew);
    for (const char* time : {"0", "-1", "86401", "1m"}) {
        EXPECT_EQ(Run({"policy", "try", "/data/good.xml", "--seconds", time}), kUsage);
        EXPECT_EQ(Err(),
                  "vusctl: --seconds takes a number from 1 to 86400 (vusctl --help tells more)\n");
    }
    EXPECT_EQ(Run({"policy", "try", "/data/bad.xml"}), kRefused);
    NoDaemon();
    EXPECT_EQ(Run({"policy", "try", "/data/good.xml"}), kNoService);
    EXPECT_EQ(Run({"policy", "keep"}), kRefused);
    EXPECT_EQ(Err(), "vusctl: no policy is on trial\n");
}

TEST_F(TryCommandTest, TellsProgramsWhatIsWrong) {
    WriteFile("/data/good.xml", kNew);
    NoDaemon();
    EXPECT_EQ(Run({"policy", "try", "/data/good.xml", "--json"}), kNoService);
    EXPECT_EQ(Out(),
              "{\n  \"inForce\" : false,\n  \"message\" : \"the daemon is not running\"\n}\n");
    EXPECT_EQ(Run({"policy", "keep", "--json"}), kRefused);
    EXPECT_EQ(Out(), "{\n  \"kept\" : false,\n  \"message\" : \"no policy is on trial\"\n}\n");
    EXPECT_EQ(Err(), "");
}

// The trial that programs begin and keep is the one of TrialTest.
class TryInJsonTest : public TrialTest {
  protected:
    int Run(const Words& words) {
        out_.str("");
        Client client([this] { return FoundService{service_, ""}; }, out_, err_, STDERR_FILENO,
                      [](int) { FAIL() << "waits for the user"; }, Terminal());
        return client.Run(words);
    }

    sp<FakeService> service_ = new FakeService;
};

TEST_F(TryInJsonTest, TellsTheAnswerOfADaemonThatRejectsIt) {
    WriteFile("/data/good.xml", kNew);
    {
        const FakeWatcher watcher({"INVALID MODE"});
        EXPECT_EQ(Run({"policy", "try", "/data/good.xml", "--json"}), kRefused);
    }
    trial_.reset(open(kTrial, O_RDONLY | O_CLOEXEC));
    EndGuard(0);
    EXPECT_EQ(out_.str(), "{\n  \"answer\" : \"INVALID MODE\",\n  \"inForce\" : false\n}\n");
}

TEST_F(TryInJsonTest, BeginsAndIsKept) {
    WriteFile("/data/good.xml", kNew);
    {
        const FakeWatcher watcher({"SUCCESS"});
        EXPECT_EQ(Run({"policy", "try", "/data/good.xml", "--json"}), kDone) << err_.str();
    }
    trial_.reset(open(kTrial, O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(out_.str(), "{\n  \"answer\" : \"SUCCESS\",\n  \"inForce\" : true\n}\n");
    WriteFile(kPolicyBackupFile, kNew);
    EXPECT_EQ(Run({"policy", "keep", "--json"}), kDone);
    EXPECT_EQ(out_.str(), "{\n  \"kept\" : true\n}\n");
    EXPECT_EQ(ReadFile(kPolicyFile), kNew);
}

}  // namespace
}  // namespace android::vus::ctl
