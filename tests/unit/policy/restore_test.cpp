// SPDX-License-Identifier: Apache-2.0

// A text is put over what was rejected, and over nothing else: whatever other processes have the
// file open, and whenever they open it.

#include "android/vus/policy_restore.h"

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <random>
#include <thread>

#include <android-base/unique_fd.h>

#include "policy_test.h"
#include "tests/support/waiting.h"

namespace android::vus {
namespace {

constexpr char kRejected[] = "<usbconfig";
constexpr char kGood[] = "<usbconfig mode='default'/>\n";
constexpr char kNewer[] = "<usbconfig mode='blacklist'><vid vendorid='1'/></usbconfig>\n";

size_t NoCloses() {
    return 0;
}

base::unique_fd Open(int flags) {
    return base::unique_fd(open(kPolicyFile, flags | O_NONBLOCK | O_CLOEXEC));
}

class RestoreTest : public PolicyTest {
  protected:
    void SetUp() override {
        PolicyTest::SetUp();
        WriteFile(kPolicyFile, kRejected);
    }

    static Restored Restore(const std::function<size_t()>& closes = NoCloses) {
        return restoreOver(kPolicyFile, kRejected, kGood, closes).outcome;
    }
};

TEST_F(RestoreTest, WhatWasRejectedIsReplacedInPlace) {
    struct stat before;
    struct stat after;
    ASSERT_EQ(chmod(kPolicyFile, 0640), 0);
    ASSERT_EQ(stat(kPolicyFile, &before), 0);
    const base::unique_fd events(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    ASSERT_GE(inotify_add_watch(events.get(), kPolicyFile, IN_CLOSE_WRITE), 0);
    EXPECT_EQ(Restore(), Restored::kDone);
    EXPECT_EQ(ReadFile(kPolicyFile), kGood);
    ASSERT_EQ(stat(kPolicyFile, &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mode, before.st_mode);
    inotify_event heard[4];
    EXPECT_EQ(read(events.get(), heard, sizeof(heard)), static_cast<ssize_t>(sizeof(heard[0])))
            << "its close is heard once";
}

TEST_F(RestoreTest, ANewerTextIsLeftAlone) {
    WriteFile(kPolicyFile, kNewer);
    EXPECT_EQ(Restore([] { return 1; }), Restored::kBeingWritten);
    EXPECT_EQ(ReadFile(kPolicyFile), kNewer);
}

TEST_F(RestoreTest, ANewerTextOfWhichNobodyHeardIsTold) {
    WriteFile(kPolicyFile, kNewer);
    EXPECT_EQ(Restore(), Restored::kChanged);
    EXPECT_EQ(ReadFile(kPolicyFile), kNewer);
}

// The text is the rejected one, still: what he will write is not.
TEST_F(RestoreTest, AWriterWhoHasItOpenIsNotOverwritten) {
    for (const int flags : {O_WRONLY, O_RDWR, O_WRONLY | O_APPEND}) {
        const base::unique_fd writer = Open(flags);
        EXPECT_EQ(Restore(), Restored::kBeingWritten);
        EXPECT_EQ(ReadFile(kPolicyFile), kRejected);
    }
}

// Or a restore would cause itself for as long as the writer takes.
TEST_F(RestoreTest, ThatAWriterHasItOpenIsFoundOutWithoutAClose) {
    const base::unique_fd writer = Open(O_WRONLY);
    const base::unique_fd events(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    ASSERT_GE(inotify_add_watch(events.get(), kPolicyFile, IN_CLOSE_WRITE | IN_MODIFY), 0);
    EXPECT_EQ(Restore(), Restored::kBeingWritten);
    inotify_event event;
    EXPECT_EQ(read(events.get(), &event, sizeof(event)), -1);
}

TEST_F(RestoreTest, AnEmptyFileThatSomebodyIsAboutToFillIsLeftToHim) {
    const base::unique_fd writer = Open(O_WRONLY | O_TRUNC);
    EXPECT_EQ(restoreOver(kPolicyFile, "", kGood, NoCloses).outcome, Restored::kBeingWritten);
    EXPECT_EQ(ReadFile(kPolicyFile), "");
}

TEST_F(RestoreTest, AReaderKeepsNobodyFromARestore) {
    const base::unique_fd reader = Open(O_RDONLY);
    EXPECT_EQ(Restore(), Restored::kDone);
    EXPECT_EQ(ReadFile(kPolicyFile), kGood);
}

// Between the comparison and the last byte: the kernel holds him until the text is written.
TEST_F(RestoreTest, AWriterWhoComesMeanwhileWaits) {
    int error = 0;
    EXPECT_EQ(Restore([&] {
                  if (Open(O_WRONLY | O_TRUNC).get() < 0) error = errno;
                  return 3;
              }),
              Restored::kDone);
    EXPECT_EQ(error, EWOULDBLOCK);
    EXPECT_EQ(ReadFile(kPolicyFile), kGood);
    EXPECT_GE(Open(O_WRONLY).get(), 0) << "not any longer";
}

TEST_F(RestoreTest, TheClosesThatWaitedAreToldAsOfTheWriting) {
    const RestoreResult result = restoreOver(kPolicyFile, kRejected, kGood, [] { return 3; });
    EXPECT_EQ(result.outcome, Restored::kDone);
    EXPECT_EQ(result.closesBefore, 3u);
}

TEST_F(RestoreTest, AMissingFileIsMade) {
    RemoveFile(kPolicyFile);
    EXPECT_EQ(restoreOver(kPolicyFile, "", kGood, NoCloses).outcome, Restored::kDone);
    EXPECT_EQ(ReadFile(kPolicyFile), kGood);
}

TEST_F(RestoreTest, WhatIsNoFileIsLeftAlone) {
    RemoveFile(kPolicyFile);
    WriteFile("/data/victim", kRejected);
    ASSERT_EQ(symlink("/data/victim", kPolicyFile), 0);
    EXPECT_EQ(Restore(), Restored::kImpossible);
    EXPECT_EQ(ReadFile("/data/victim"), kRejected);

    RemoveFile(kPolicyFile);
    ASSERT_EQ(mkfifo(kPolicyFile, 0600), 0);
    EXPECT_EQ(Restore(), Restored::kImpossible);

    RemoveFile(kPolicyFile);
    MakeDir(kPolicyFile);
    EXPECT_EQ(Restore(), Restored::kImpossible);

    RemoveTree(kConfigDir);
    EXPECT_EQ(Restore(), Restored::kImpossible);
}

// Leases are not for everybody, and not on every file system. For the calling thread, for good.
void RefuseLeases() {
    sock_filter program[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_fcntl, 0, 3),
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[1])),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, F_SETLEASE, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EACCES),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter = {sizeof(program) / sizeof(program[0]), program};
    ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
    ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter), 0) << strerror(errno);
}

TEST_F(RestoreTest, WithoutLeasesTheTextDecides) {
    std::thread([] {
        ASSERT_NO_FATAL_FAILURE(RefuseLeases());
        EXPECT_EQ(Restore(), Restored::kDone);
        EXPECT_EQ(ReadFile(kPolicyFile), kGood);
        EXPECT_EQ(Restore(), Restored::kBeingWritten) << "it may be that somebody is at it";
        EXPECT_EQ(ReadFile(kPolicyFile), kGood);
    }).join();
}

// Somebody empties the file, and a moment later fills it. Returns what a restore that begins in
// between comes to.
Restored RestoreWhatIsBeingFilled() {
    WriteFile(kPolicyFile, "");
    std::atomic<bool> opened{false};
    std::thread writer([&] {
        const base::unique_fd file = Open(O_WRONLY | O_TRUNC);
        opened = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        EXPECT_EQ(write(file.get(), kNewer, strlen(kNewer)), static_cast<ssize_t>(strlen(kNewer)));
    });
    Restored outcome = Restored::kImpossible;
    std::thread([&] {
        ASSERT_NO_FATAL_FAILURE(RefuseLeases());
        EXPECT_TRUE(Eventually([&] { return opened.load(); }));
        outcome = restoreOver(kPolicyFile, "", kGood, NoCloses).outcome;
    }).join();
    writer.join();
    return outcome;
}

// A shell that empties the file first, as `cat new > policy` does. On a machine that has other
// things to do his moment may be longer than he is given, but not always.
TEST_F(RestoreTest, WithoutLeasesAWriterIsGivenAMomentToFillWhatHeEmptied) {
    EXPECT_TRUE(Eventually([] { return RestoreWhatIsBeingFilled() == Restored::kBeingWritten; }));
    EXPECT_EQ(ReadFile(kPolicyFile), kNewer);
}

// A truncated file and a moment later the good one, while it is restored: whoever comes second, the
// newer text is never lost, and neither is mixed into the other.
TEST_F(RestoreTest, ARaceWithAWriterIsNeverLost) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    size_t restored = 0;
    size_t rounds = 0;
    // On a loaded machine it takes longer until each has come first once.
    const auto is_enough = [&] { return rounds >= 3000 && restored > 0 && restored < rounds; };
    const auto deadline = std::chrono::steady_clock::now() + kLongEnough;
    for (; !is_enough() && !HasFailure() && std::chrono::steady_clock::now() < deadline; ++rounds) {
        WriteFile(kPolicyFile, "");
        const auto pause = std::chrono::microseconds(random() % 60);
        std::atomic<bool> ready{false};
        std::atomic<bool> go{false};
        std::thread writer([&] {
            ready = true;
            while (!go) std::this_thread::yield();
            const auto start = std::chrono::steady_clock::now() + pause;
            while (std::chrono::steady_clock::now() < start) {
            }
            WriteFile(kPolicyFile, kNewer);
        });
        while (!ready) std::this_thread::yield();
        go = true;
        if (restoreOver(kPolicyFile, "", kGood, NoCloses).outcome == Restored::kDone) ++restored;
        writer.join();
        EXPECT_EQ(ReadFile(kPolicyFile), kNewer);
    }
    RecordProperty("restored", std::to_string(restored));
    EXPECT_GT(restored, 0u) << "no round in which the restore came first";
    EXPECT_LT(restored, rounds) << "no round in which the writer did";
}

}  // namespace
}  // namespace android::vus
