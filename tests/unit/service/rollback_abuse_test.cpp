// SPDX-License-Identifier: Apache-2.0
//
// The watcher under writers that do not know of each other: whatever they write, there is a good
// backup once there was a good policy, and in the end a good policy is in force.

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <random>
#include <thread>
#include <tuple>

#include <android-base/unique_fd.h>

#include "service_fixture.h"
#include "tests/support/child_process.h"

namespace android::vus {
namespace {

constexpr char kStart[] =
        "<usbconfig mode='whitelist'><class>USB_CLASS_AUDIO</class></usbconfig>\n";
constexpr int kWritesOfEach = 500;

// Valid, invalid, and cut in the middle.
std::string RandomPolicy(std::mt19937* random) {
    std::string policy = "<usbconfig mode='whitelist'>";
    const unsigned rules = (*random)() % 20;
    for (unsigned rule = 0; rule < rules; ++rule) {
        policy += "<vid vendorid='" + std::to_string(1 + (*random)() % 9000) + "'/>";
    }
    policy += "<class>USB_CLASS_PRINTER</class></usbconfig>\n";
    switch ((*random)() % 3) {
        case 0:
            return policy;
        case 1:
            return "<usbconfig mode='whitelist'><class>USB_CLASS_DISK</class></usbconfig>\n";
        default:
            return policy.substr(0, policy.size() / 2);
    }
}

// In place and in pieces, as an editor or a shell would.
void Rewrite(const std::string& policy) {
    const base::unique_fd fd(open(kPolicyFile, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    const size_t middle = policy.size() / 3;
    ASSERT_EQ(write(fd.get(), policy.data(), middle), static_cast<ssize_t>(middle));
    std::this_thread::yield();
    const size_t rest = policy.size() - middle;
    ASSERT_EQ(write(fd.get(), policy.data() + middle, rest), static_cast<ssize_t>(rest));
}

void RewriteManyTimes(unsigned seed) {
    std::mt19937 random(seed);
    for (int count = 0; count < kWritesOfEach; ++count) Rewrite(RandomPolicy(&random));
}

class RollbackAbuseTest : public ServiceTest {
  protected:
    // Waits until the watcher has handled every event so far and every one that this has caused.
    void Settle() {
        for (int quiet = 0, marker = 0; quiet < 2; ++marker) {
            ASSERT_LT(marker, 1000) << "it never settles";
            const size_t loads = CountOf("Admin usb_device_config.xml config file call parsing");
            const std::string file = std::string(kConfigDir) + "/marker" + std::to_string(marker);
            WriteFile(file, "");
            ASSERT_TRUE(WaitFor(
                    [&] { return Logged("CLOSE_WRITE event triggered on filename " + file); }));
            const bool moved =
                    CountOf("Admin usb_device_config.xml config file call parsing") != loads;
            quiet = moved ? 0 : quiet + 1;
        }
    }

    static auto TablesInForce() {
        const PolicyReadLock policy;
        return std::make_tuple(Util::configMode, Util::classList, Util::vidPidMap);
    }

    static bool Loads(const char* path) {
        Util::createMapFromConfig(path);
        return Util::xml_parse_status;
    }
};

TEST_F(RollbackAbuseTest, TwoWritersAndAThousandRewrites) {
    const unsigned seed = std::random_device{}();
    RecordProperty("seed", std::to_string(seed));
    ExpectPassesInChild([&] {
        SCOPED_TRACE("seed " + std::to_string(seed));
        WriteFile(kPolicyFile, kStart);
        VUsbService::registerFileObserverViaThread();
        ASSERT_TRUE(WaitFor([&] { return Logged("registered successfully file observer"); }));
        Rewrite(kStart);
        ASSERT_TRUE(WaitFor([&] { return ReadFile(kPolicyBackupFile) == kStart; }));

        std::thread one(RewriteManyTimes, seed);
        std::thread other(RewriteManyTimes, seed + 1);
        one.join();
        other.join();
        ASSERT_NO_FATAL_FAILURE(Settle());

        const std::string status = ReadFile(kStatusFile);
        const auto in_force = TablesInForce();
        EXPECT_TRUE(Loads(kPolicyBackupFile)) << ReadFile(kPolicyBackupFile);
        EXPECT_EQ(TablesInForce(), in_force) << "the backup is what is in force";
        EXPECT_TRUE(Loads(kPolicyFile)) << ReadFile(kPolicyFile);
        EXPECT_EQ(TablesInForce(), in_force) << "the file is what is in force";
        EXPECT_FALSE(status.empty());
    });
}

// The other writer strikes between load and backup: the log line there is the moment.
void TearPolicyWhenItIsConfirmed() {
    base::SetLogger([](base::LogId, base::LogSeverity, const char*, const char*, unsigned,
                       const char* message) {
        if (std::string(message) == "Parsing success, so update status file and create backup") {
            const base::unique_fd fd(open(kPolicyFile, O_WRONLY | O_TRUNC | O_CLOEXEC));
            EXPECT_EQ(write(fd.get(), "<usb", 4), 4);
        }
    });
}

// The torn policy is rejected in its turn; what was in force until then comes back.
TEST_F(RollbackAbuseTest, AWriterAtThePolicyWhileItIsBackedUpDoesNotSpoilTheBackup) {
    for (const bool first_policy_ever : {false, true}) {
        ExpectPassesInChild([&] {
            constexpr char kLoaded[] =
                    "<usbconfig mode='whitelist'><class>USB_CLASS_VIDEO</class></usbconfig>\n";
            if (!first_policy_ever) WriteFile(kPolicyBackupFile, kStart);
            WriteFile(kPolicyFile, kStart);
            VUsbService::registerFileObserverViaThread();
            ASSERT_TRUE(WaitFor([&] { return Logged("registered successfully file observer"); }));
            TearPolicyWhenItIsConfirmed();
            Rewrite(kLoaded);
            EXPECT_TRUE(WaitFor([&] {
                return ReadFile(kPolicyFile) == kLoaded && ReadFile(kPolicyBackupFile) == kLoaded;
            })) << ReadFile(kPolicyFile)
                << ReadFile(kPolicyBackupFile);
        });
    }
}

// Four pages: one for the policy, one for the backup, one for the status, one to spare.
void PutPolicyOnASmallDisk() {
    ASSERT_EQ(unshare(CLONE_NEWNS), 0) << strerror(errno);
    ASSERT_EQ(mount("tmpfs", kConfigDir, "tmpfs", 0, "size=16k"), 0) << strerror(errno);
}

// A policy of two pages takes the last one, and leaves one for its backup.
TEST_F(RollbackAbuseTest, APolicyWhoseBackupDoesNotFitLeavesTheLastOne) {
    ExpectPassesInChild([&] {
        ASSERT_NO_FATAL_FAILURE(PutPolicyOnASmallDisk());
        WriteFile(kPolicyFile, kStart);
        VUsbService::registerFileObserverViaThread();
        ASSERT_TRUE(WaitFor([&] { return Logged("registered successfully file observer"); }));
        Rewrite(kStart);
        ASSERT_TRUE(WaitFor([&] { return ReadFile(kPolicyBackupFile) == kStart; }));

        Rewrite("<usbconfig mode='whitelist'><class>USB_CLASS_VIDEO</class>" +
                std::string(5000, ' ') + "</usbconfig>\n");
        ASSERT_TRUE(WaitFor([&] {
            return Logged(HasSubstr("the backup cannot be written: keeping the last one"));
        }));
        Rewrite("<usb");
        EXPECT_TRUE(WaitFor([&] { return ReadFile(kPolicyFile) == kStart; }));
        EXPECT_EQ(ReadFile(kPolicyBackupFile), kStart);
        EXPECT_THAT(ReadFile(kStatusFile), HasSubstr("XML_ERROR"));
    });
}

}  // namespace
}  // namespace android::vus
