// SPDX-License-Identifier: Apache-2.0
//
// A policy that does not load is replaced by the backup, whatever stands in its place, whenever the
// repair is killed, and whoever writes meanwhile; one that loads is not.

#include "tools/vusctl/policy_repair.h"

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <sstream>
#include <variant>

#include <android-base/file.h>
#include <android-base/unique_fd.h>

#include "android/vus/file_io.h"
#include "android/vus/paths.h"
#include "android/vus/policy.h"
#include "tests/support/world.h"
#include "tests/unit/tools/client_fixture.h"

namespace android::vus::ctl {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr char kLastGood[] =
        "<usbconfig mode=\"whitelist\"><class>USB_CLASS_AUDIO</class></usbconfig>\n";
constexpr char kAnotherPolicy[] =
        "<usbconfig mode=\"blacklist\"><vid vendorid=\"5\"/></usbconfig>\n";
constexpr char kTornPolicy[] = "<usbconfig mode=\"whitelist\"><class>USB_CLASS_AU";
constexpr char kRepairPath[] = "/data/system/usbdeviceconfig/usb_device_config.repair";
constexpr char kRejectedPath[] = "/data/system/usbdeviceconfig/usb_device_config_rejected.xml";
constexpr int kRepairNeverEnds = 1000;

bool LoadsAsPolicy(const char* path) {
    const PolicyText text = read_policy_text(std::string(path));
    return text.ok() && std::holds_alternative<Policy>(parsePolicy(text.bytes));
}

bool IsThere(const char* path) {
    struct stat entry = {};
    return lstat(path, &entry) == 0;
}

size_t EntriesOfDirectory() {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(kConfigDir)) {
        static_cast<void>(entry);
        ++count;
    }
    return count;
}

class PolicyRepairTest : public testing::Test {
  protected:
    void SetUp() override { Put(kTornPolicy, kLastGood); }

    void Put(const std::string& policy, const std::string& backup) {
        EmptyWorld();
        WriteFile(kPolicyFile, policy);
        WriteFile(kPolicyBackupFile, backup);
    }
    int Repair() {
        out_.str("");
        err_.str("");
        return repair_policy(out_, err_);
    }
    void ExpectRepaired() {
        EXPECT_EQ(Repair(), kDone) << err_.str();
        EXPECT_THAT(out_.str(), StartsWith("repaired: the last good policy is back"));
        EXPECT_EQ(ReadFile(kPolicyFile), kLastGood);
        EXPECT_FALSE(IsThere(kRepairPath));
    }

    std::ostringstream out_, err_;
};

TEST_F(PolicyRepairTest, SaysWhatItDid) {
    EXPECT_EQ(Repair(), kDone);
    EXPECT_EQ(out_.str(),
              "repaired: the last good policy is back, because what stood there did not load "
              "(Error=XML_ERROR_PARSING_TEXT ErrorID=8 (0x8) Line number=1); that is "
              "/data/system/usbdeviceconfig/usb_device_config_rejected.xml now\n");
    EXPECT_EQ(err_.str(), "");
    EXPECT_EQ(ReadFile(kPolicyFile), kLastGood);
    EXPECT_EQ(ReadFile(kPolicyBackupFile), kLastGood);
    EXPECT_EQ(ReadFile(kRejectedPath), kTornPolicy);
    EXPECT_EQ(EntriesOfDirectory(), 3u);
}

TEST_F(PolicyRepairTest, LeavesWhatLoadsAlone) {
    Put(kAnotherPolicy, kLastGood);
    struct stat before = {}, after = {};
    ASSERT_EQ(stat(kPolicyFile, &before), 0);
    EXPECT_EQ(Repair(), kDone);
    EXPECT_EQ(out_.str(), "the policy loads: nothing to repair\n");
    ASSERT_EQ(stat(kPolicyFile, &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(ReadFile(kPolicyFile), kAnotherPolicy);
    EXPECT_EQ(EntriesOfDirectory(), 2u);
}

TEST_F(PolicyRepairTest, RepairsAPolicyThatIsTornAnywhere) {
    const std::string whole = kAnotherPolicy;
    size_t loaded = 0;
    for (size_t length = 0; length <= whole.size(); ++length) {
        Put(whole.substr(0, length), kLastGood);
        const bool loads = LoadsAsPolicy(kPolicyFile);
        loaded += loads ? 1 : 0;
        EXPECT_EQ(Repair(), kDone) << length;
        EXPECT_EQ(ReadFile(kPolicyFile), loads ? whole.substr(0, length) : kLastGood) << length;
    }
    EXPECT_EQ(loaded, 2u);  // whole, with the last line's end and without
}

TEST_F(PolicyRepairTest, RepairsWhatIsNoFile) {
    using Make = std::function<int()>;
    WriteFile("/data/bad", kTornPolicy);
    const Make makes[] = {
            [] { return mkfifo(kPolicyFile, 0660); },
            [] { return symlink("/nowhere", kPolicyFile); },
            [] { return symlink("/dev/zero", kPolicyFile); },
            [] { return symlink("usb_device_config.xml", kPolicyFile); },
            [] { return 0; },  // missing
    };
    for (const Make& make : makes) {
        Put(kTornPolicy, kLastGood);
        unlink(kPolicyFile);
        ASSERT_EQ(make(), 0) << strerror(errno);
        ExpectRepaired();
    }
}

TEST_F(PolicyRepairTest, RepairsAPolicyThatIsTooLong) {
    WriteFile(kPolicyFile, std::string(kMaxPolicyBytes, ' ') + kAnotherPolicy);
    ExpectRepaired();
}

TEST_F(PolicyRepairTest, WritesThroughNoLink) {
    WriteFile("/data/victim", kTornPolicy);
    unlink(kPolicyFile);
    for (const char* path : {kPolicyFile, kRepairPath, kRejectedPath}) {
        ASSERT_EQ(symlink("/data/victim", path), 0);
    }
    ExpectRepaired();
    EXPECT_EQ(ReadFile("/data/victim"), kTornPolicy);
    struct stat entry = {};
    ASSERT_EQ(lstat(kPolicyFile, &entry), 0);
    EXPECT_TRUE(S_ISREG(entry.st_mode));
}

TEST_F(PolicyRepairTest, KeepsTheMode) {
    ASSERT_EQ(chmod(kPolicyFile, 0664), 0);
    ExpectRepaired();
    struct stat entry = {};
    ASSERT_EQ(stat(kPolicyFile, &entry), 0);
    EXPECT_EQ(entry.st_mode & 07777, 0664u);
}

TEST_F(PolicyRepairTest, WithoutAnyPolicyThereIsNothingToRepair) {
    unlink(kPolicyFile);
    unlink(kPolicyBackupFile);
    EXPECT_EQ(Repair(), kDone);
    EXPECT_EQ(out_.str(), "there is no policy yet: nothing to repair\n");
    EXPECT_EQ(EntriesOfDirectory(), 0u);
    RemoveTree(kConfigDir);
    EXPECT_EQ(Repair(), kDone);
}

TEST_F(PolicyRepairTest, WithoutAGoodBackupNothingIsTouched) {
    for (const char* backup : {"", kTornPolicy, "<usbconfig mode=\"x\"/>"}) {
        Put(kTornPolicy, backup);
        EXPECT_EQ(Repair(), kRefused) << backup;
        EXPECT_THAT(err_.str(), StartsWith("vusctl: not repaired: the policy does not load ("));
        EXPECT_EQ(out_.str(), "");
        EXPECT_EQ(ReadFile(kPolicyFile), kTornPolicy);
        EXPECT_EQ(EntriesOfDirectory(), 2u);
    }
    Put(kTornPolicy, kLastGood);
    unlink(kPolicyBackupFile);
    EXPECT_EQ(Repair(), kRefused);
    WriteFile("/data/good", kLastGood);
    ASSERT_EQ(symlink("/data/good", kPolicyBackupFile), 0);
    EXPECT_EQ(Repair(), kRefused) << "a link is nothing that the daemon wrote";
    EXPECT_EQ(ReadFile(kPolicyFile), kTornPolicy);
}

TEST_F(PolicyRepairTest, ADirectoryInThePoliciesPlaceIsAFailure) {
    unlink(kPolicyFile);
    MakeDir(kPolicyFile);
    EXPECT_EQ(Repair(), kFailed);
    EXPECT_THAT(err_.str(), StartsWith("vusctl: not repaired: cannot replace "));
    EXPECT_EQ(ReadFile(kPolicyBackupFile), kLastGood);
    EXPECT_FALSE(IsThere(kRepairPath));
}

TEST_F(PolicyRepairTest, IsACommand) {
    Client client([] { return FoundService{nullptr, "the daemon is not running"}; }, out_, err_,
                  STDERR_FILENO, [](int) {});
    EXPECT_EQ(client.Run({"policy", "repair"}), kDone);
    EXPECT_EQ(ReadFile(kPolicyFile), kLastGood);
    EXPECT_EQ(client.Run({"policy", "repair", "x"}), kUsage);
}

// The policy's directory on a file system of its own.
class SmallDiskTest : public PolicyRepairTest {
  protected:
    void SetUp() override {
        EmptyWorld();
        MakeDir(kConfigDir);
        ASSERT_EQ(mount("tmpfs", kConfigDir, "tmpfs", 0, "size=64k"), 0) << strerror(errno);
        PutOnFullDisk();
    }
    // Takes all the room that there is, once the two files have theirs.
    void PutOnFullDisk() {
        const std::string full = std::string(kConfigDir) + "/full";
        for (const char* path : {kRejectedPath, kRepairPath, full.c_str()}) unlink(path);
        WriteFile(kPolicyFile, kTornPolicy);
        WriteFile(kPolicyBackupFile, kLastGood);
        const base::unique_fd file(open(full.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        ASSERT_FALSE(base::WriteStringToFd(std::string(100000, 'x'), file));
        ASSERT_EQ(errno, ENOSPC);
    }
    void TearDown() override { EXPECT_EQ(umount2(kConfigDir, MNT_DETACH), 0); }
};

TEST_F(SmallDiskTest, AFullDiskMovesTheBackup) {
    EXPECT_EQ(Repair(), kDone) << err_.str();
    EXPECT_THAT(out_.str(), HasSubstr("it is the backup itself, because no copy could be written: "
                                      "No space left on device"));
    EXPECT_EQ(ReadFile(kPolicyFile), kLastGood);
    EXPECT_FALSE(IsThere(kRepairPath));
    EXPECT_FALSE(IsThere(kPolicyBackupFile));
}

TEST_F(SmallDiskTest, AReadOnlyDiskIsAFailure) {
    ASSERT_EQ(mount(nullptr, kConfigDir, nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(Repair(), kFailed);
    EXPECT_THAT(err_.str(), HasSubstr("Read-only file system"));
    EXPECT_EQ(ReadFile(kPolicyFile), kTornPolicy);
}

// A repair that stops at each of its system calls.
class TracedRepair {
  public:
    TracedRepair() : pid_(fork()) {
        if (pid_ == 0) {
            ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            raise(SIGSTOP);
            std::ostringstream out, err;
            _exit(repair_policy(out, err));
        }
        Await();
        ptrace(PTRACE_SETOPTIONS, pid_, nullptr, PTRACE_O_EXITKILL);
    }
    ~TracedRepair() {
        if (alive_) kill(pid_, SIGKILL);
        while (alive_) Await();
    }

    // Returns whether it has ended before.
    bool RunFor(int stops) {
        for (int stop = 0; stop < stops && alive_; ++stop) {
            ptrace(PTRACE_SYSCALL, pid_, nullptr, nullptr);
            Await();
        }
        return !alive_;
    }
    int RunToItsEnd() {
        RunFor(kRepairNeverEnds);
        return WIFEXITED(status_) ? WEXITSTATUS(status_) : -1;
    }

  private:
    void Await() {
        ASSERT_EQ(TEMP_FAILURE_RETRY(waitpid(pid_, &status_, 0)), pid_);
        alive_ = WIFSTOPPED(status_);
    }

    const pid_t pid_;
    int status_ = 0;
    bool alive_ = true;
};

TEST_F(PolicyRepairTest, KilledAnywhereItLeavesTheOldPolicyOrTheGoodOne) {
    bool over = false;
    int stops = 0;
    while (!over && stops < kRepairNeverEnds) {
        SCOPED_TRACE("killed at stop " + std::to_string(++stops));
        Put(kTornPolicy, kLastGood);
        over = TracedRepair().RunFor(stops);
        EXPECT_THAT(ReadFile(kPolicyFile), testing::AnyOf(kTornPolicy, kLastGood));
        EXPECT_EQ(ReadFile(kPolicyBackupFile), kLastGood);
        // The next one ends what this one began.
        EXPECT_EQ(Repair(), kDone);
        EXPECT_EQ(ReadFile(kPolicyFile), kLastGood);
        EXPECT_FALSE(IsThere(kRepairPath));
        if (HasFailure()) return;
    }
    EXPECT_GT(stops, 40);
    EXPECT_LT(stops, kRepairNeverEnds);
}

TEST_F(SmallDiskTest, KilledAnywhereOnAFullDiskItLosesNothing) {
    bool over = false;
    int stops = 0;
    while (!over && stops < kRepairNeverEnds) {
        SCOPED_TRACE("killed at stop " + std::to_string(++stops));
        PutOnFullDisk();
        over = TracedRepair().RunFor(stops);
        const bool good = LoadsAsPolicy(kPolicyFile);
        EXPECT_TRUE(good || ReadFile(kPolicyFile) == kTornPolicy);
        EXPECT_TRUE(good || LoadsAsPolicy(kPolicyBackupFile));
        EXPECT_EQ(Repair(), kDone);
        EXPECT_EQ(ReadFile(kPolicyFile), kLastGood);
        if (HasFailure()) return;
    }
    EXPECT_GT(stops, 40);
    EXPECT_LT(stops, kRepairNeverEnds);
}

TEST_F(PolicyRepairTest, APolicyThatIsWrittenMeanwhileStays) {
    bool over = false;
    int stops = 0;
    while (!over && stops < kRepairNeverEnds) {
        SCOPED_TRACE("written at stop " + std::to_string(++stops));
        Put(kTornPolicy, kLastGood);
        TracedRepair repair;
        over = repair.RunFor(stops);
        WriteFile(kPolicyFile, kAnotherPolicy);
        if (!over) {
            EXPECT_EQ(repair.RunToItsEnd(), kDone);
        }
        EXPECT_EQ(ReadFile(kPolicyFile), kAnotherPolicy);
        if (HasFailure()) return;
    }
    EXPECT_LT(stops, kRepairNeverEnds);
}

}  // namespace
}  // namespace android::vus::ctl
