// SPDX-License-Identifier: Apache-2.0
//
// The first policy is there as a whole or not at all: whatever fails while the start-up task makes
// it, whenever that is killed, and whoever comes between. What it could not do, the next one does.

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <functional>
#include <string>

#include <android-base/unique_fd.h>

#include "android/vus/daemon.h"
#include "android/vus/policy_files.h"
#include "tests/support/child_process.h"
#include "tests/support/faulty_call.h"
#include "watcher_fixture.h"

namespace android::vus {
namespace {

constexpr char kFirst[] =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<usbconfig mode=\"default\">\n</usbconfig>";
constexpr size_t kFirstLength = 78;
constexpr char kAside[] = "/data/system/usbdeviceconfig/usb_device_config.first";
constexpr char kVictim[] = "/data/victim";
constexpr int kMostCalls = 100;
// Two looks, the lock, a left-over, the file, its text, the disk, the name: there are no fewer.
constexpr int kFewestCalls = 10;

class FirstPolicyTest : public WatcherTest {
  protected:
    static bool IsThere(const char* path) {
        struct stat entry = {};
        return lstat(path, &entry) == 0;
    }

    static void BeginAnew() {
        RemoveTree(kConfigDir);
        MakeDir(kConfigDir);
    }

    static void ExpectAllOrNothing() {
        EXPECT_TRUE(!IsThere(kPolicyFile) || ReadFile(kPolicyFile) == kFirst)
                << ReadFile(kPolicyFile).size() << " bytes";
    }

    static void ExpectNothingElse() {
        for (const auto& entry : std::filesystem::directory_iterator(kConfigDir)) {
            EXPECT_EQ(entry.path(), kPolicyFile);
        }
    }

    static void ExpectTheNextStartMakesIt() {
        PolicyFiles::createDefault();
        EXPECT_EQ(ReadFile(kPolicyFile), kFirst);
        ExpectNothingElse();
    }

    // Makes the first policy; before its n-th call `comes` happens, on another thread. Returns
    // whether there was an n-th.
    static bool MakeAndAt(int n, const std::function<void()>& comes) {
        int count = 0;
        FaultyCall::run(INT_MAX, 0, PolicyFiles::createDefault,
                        [&](int, const unsigned long long*) {
                            if (++count == n) comes();
                            return false;
                        });
        return count >= n;
    }

    // Runs `run` for each call of a start-up task: run(n) answers whether there was an n-th.
    static void Walk(const std::function<bool(int n)>& run) {
        int n = 1;
        for (; n < kMostCalls; ++n) {
            SCOPED_TRACE("call " + std::to_string(n));
            BeginAnew();
            if (!run(n) || HasFailure()) break;
        }
        EXPECT_GT(n, kFewestCalls);
        EXPECT_LT(n, kMostCalls) << "it does not end";
    }
};

TEST_F(FirstPolicyTest, WhateverFails) {
    for (const int error : {ENOSPC, EIO, EMFILE, ENOMEM}) {
        SCOPED_TRACE(strerror(error));
        Walk([&](int n) {
            const auto failed = FaultyCall::run(n, error, PolicyFiles::createDefault);
            ExpectAllOrNothing();
            ExpectTheNextStartMakesIt();
            return failed.has_value();
        });
    }
}

TEST_F(FirstPolicyTest, WhereverTheDiskIsFull) {
    for (size_t room = 0; room <= kFirstLength; ++room) {
        SCOPED_TRACE(std::to_string(room) + " bytes fit");
        BeginAnew();
        const ChildResult result = RunInChild([&] {
            signal(SIGXFSZ, SIG_IGN);
            const rlimit limit = {room, room};
            ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
            PolicyFiles::createDefault();
        });
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(IsThere(kPolicyFile), room == kFirstLength);
        ExpectAllOrNothing();
        ExpectNothingElse();
    }
}

TEST_F(FirstPolicyTest, WheneverItIsKilled) {
    Walk([](int n) {
        const ChildResult result =
                RunInChild([&] { MakeAndAt(n, [] { kill(getpid(), SIGKILL); }); });
        ExpectAllOrNothing();
        ExpectTheNextStartMakesIt();
        return result.signal == SIGKILL;
    });
}

TEST_F(FirstPolicyTest, WhenSomebodyWritesOneMeanwhileItIsTheirs) {
    Walk([](int n) {
        const bool came = MakeAndAt(n, [] { WriteFile(kPolicyFile, kAudioPolicy); });
        EXPECT_EQ(ReadFile(kPolicyFile), came ? kAudioPolicy : kFirst);
        ExpectNothingElse();
        return came;
    });
}

TEST_F(FirstPolicyTest, WhenSomebodyBeginsToWriteOneItIsNotTakenFromThem) {
    Walk([](int n) {
        base::unique_fd theirs;
        const bool came = MakeAndAt(n, [&] {
            theirs.reset(open(kPolicyFile, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0660));
        });
        struct stat policy = {};
        struct stat opened = {};
        EXPECT_EQ(stat(kPolicyFile, &policy), 0);
        EXPECT_TRUE(!came || (fstat(theirs.get(), &opened) == 0 && policy.st_ino == opened.st_ino));
        return came;
    });
}

TEST_F(FirstPolicyTest, WhenTwoMakeItAtOnce) {
    Walk([](int n) {
        const bool came = MakeAndAt(n, PolicyFiles::createDefault);
        EXPECT_EQ(ReadFile(kPolicyFile), kFirst);
        ExpectNothingElse();
        return came;
    });
}

TEST_F(FirstPolicyTest, WhileAnotherIsAtItNothingIsDone) {
    const base::unique_fd another(open(kConfigDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(flock(another.get(), LOCK_EX), 0);
    WriteFile(kAside, "half of");
    PolicyFiles::createDefault();
    EXPECT_EQ(ReadFile(kAside), "half of");
    EXPECT_FALSE(IsThere(kPolicyFile));
    ASSERT_EQ(flock(another.get(), LOCK_UN), 0);
    ExpectTheNextStartMakesIt();
}

TEST_F(FirstPolicyTest, WhatAKilledOneLeftIsNotUsed) {
    const mode_t before = umask(007);
    WriteFile(kAside, "<?xml");
    ASSERT_EQ(chmod(kAside, 0600), 0);
    ASSERT_EQ(link(kAside, kVictim), 0);
    ExpectTheNextStartMakesIt();
    umask(before);
    struct stat policy = {};
    ASSERT_EQ(stat(kPolicyFile, &policy), 0);
    EXPECT_EQ(policy.st_mode & 07777, 0660u);
    EXPECT_EQ(policy.st_nlink, 1u);
    EXPECT_EQ(ReadFile(kVictim), "<?xml");
}

// Killed before the second name was gone.
TEST_F(FirstPolicyTest, ASecondNameOfThePolicyIsRemoved) {
    WriteFile(kPolicyFile, kAudioPolicy);
    ASSERT_EQ(link(kPolicyFile, kAside), 0);
    PolicyFiles::createDefault();
    EXPECT_EQ(ReadFile(kPolicyFile), kAudioPolicy);
    ExpectNothingElse();
}

TEST_F(FirstPolicyTest, ALinkUnderItsNameIsNotFollowed) {
    for (const char* target : {kVictim, "/data/nothing", kPolicyFile}) {
        SCOPED_TRACE(target);
        BeginAnew();
        WriteFile(kVictim, "theirs");
        ASSERT_EQ(symlink(target, kAside), 0);
        ExpectTheNextStartMakesIt();
        EXPECT_EQ(ReadFile(kVictim), "theirs");
        EXPECT_FALSE(IsThere("/data/nothing"));
    }
}

TEST_F(FirstPolicyTest, APipeUnderItsNameIsNotWaitedFor) {
    ASSERT_EQ(mkfifo(kAside, 0660), 0);
    ExpectTheNextStartMakesIt();
}

// Nobody's way to have it written elsewhere, or in part: there is none.
TEST_F(FirstPolicyTest, ADirectoryUnderItsNameIsLeftAlone) {
    MakeDir(kAside);
    PolicyFiles::createDefault();
    EXPECT_FALSE(IsThere(kPolicyFile));
    EXPECT_TRUE(IsThere(kAside));
}

// Who watches is told, as of every policy that is written.
TEST_F(FirstPolicyTest, ADaemonThatIsAtWorkLoadsIt) {
    InWatchedProcess([&] {
        PolicyFiles::createDefault();
        ASSERT_TRUE(WaitFor([&] { return Logged(kReset); }));
        EXPECT_EQ(ReadFile(kStatusFile), "SUCCESS");
        DrainEvents();
        EXPECT_EQ(CountOf(kReloaded), 1u);
    });
}

}  // namespace
}  // namespace android::vus
