// SPDX-License-Identifier: Apache-2.0
//
// The watcher's restore of the backup, with writers that do not know of it: the last good text that
// somebody wrote is the one in force, and the status, the file and the tables agree.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <random>
#include <thread>

#include <android-base/unique_fd.h>

#include "watcher_fixture.h"

namespace android::vus {
namespace {

class WatcherRestoreTest : public WatcherTest {
  protected:
    // A watcher that has confirmed the audio policy.
    void InProcessWithGoodPolicy(const std::function<void()>& scenario) {
        InWatchedProcess([&] {
            WriteFile(kPolicyFile, kAudioPolicy);
            ASSERT_TRUE(WaitFor([&] { return Logged(kReset); }));
            DrainEvents();
            logs_.Clear();
            scenario();
        });
    }

    // At the log line `moment`, once: writes the policy in the watcher's way.
    void WriteAt(const std::string& moment, const std::string& policy) {
        base::SetLogger([this, moment, policy,
                         done = std::make_shared<std::atomic<bool>>(
                                 false)](base::LogId, base::LogSeverity severity, const char*,
                                         const char*, unsigned, const char* message) {
            logs_.Add(severity, message);
            if (message == moment && !done->exchange(true)) WriteFile(kPolicyFile, policy);
        });
    }

    static std::string ModeInForce() {
        const PolicyReadLock policy;
        return Util::getMode();
    }

    static bool ClassInForce(uint32_t code) {
        const PolicyReadLock policy;
        return Util::validateClass(code);
    }
};

TEST_F(WatcherRestoreTest, APolicyThatComesBeforeTheRestoreIsTheOneInForce) {
    for (const char* moment :
         {kReloaded, "Parsing status xml_parse_status 0", kRestored,
          " USB xml src path is /data/system/usbdeviceconfig/usb_device_config_backup.xml",
          "USB xml dest path is /data/system/usbdeviceconfig/usb_device_config.xml"}) {
        SetUp();
        SCOPED_TRACE(moment);
        InProcessWithGoodPolicy([&] {
            WriteAt(moment, kVideoPolicy);
            WriteFile(kPolicyFile, "");
            ASSERT_TRUE(WaitFor([&] { return Logged(kReset); }));
            DrainEvents();
            EXPECT_EQ(ReadFile(kPolicyFile), kVideoPolicy);
            EXPECT_EQ(ReadFile(kPolicyBackupFile), kVideoPolicy);
            EXPECT_EQ(ReadFile(kStatusFile), "SUCCESS");
            EXPECT_TRUE(ClassInForce(0x0E));
            EXPECT_FALSE(ClassInForce(0x01));
        });
    }
}

// The text of the backup, of all texts: its close is not taken for that of a restore.
TEST_F(WatcherRestoreTest, TheOldPolicySentAgainIsConfirmed) {
    for (const char* moment :
         {kRestored, "USB xml dest path is /data/system/usbdeviceconfig/usb_device_config.xml"}) {
        SetUp();
        SCOPED_TRACE(moment);
        InProcessWithGoodPolicy([&] {
            WriteAt(moment, kAudioPolicy);
            WriteFile(kPolicyFile, kBadPolicy);
            ASSERT_TRUE(WaitFor([&] { return Logged(kReset); }));
            DrainEvents();
            EXPECT_EQ(ReadFile(kStatusFile), "SUCCESS");
        });
    }
}

TEST_F(WatcherRestoreTest, TwoBadPoliciesInARowAreNoSuccess) {
    InProcessWithGoodPolicy([&] {
        WriteAt(kReloaded, kBadPolicy);  // a second one before the first is loaded
        WriteFile(kPolicyFile, kBadPolicy);
        ASSERT_TRUE(WaitFor([&] { return Logged("Parsing status xml_parse_status 1"); }));
        DrainEvents();
        EXPECT_EQ(ReadFile(kPolicyFile), kAudioPolicy);
        EXPECT_EQ(ReadFile(kStatusFile), "INVALID MODE");
        EXPECT_FALSE(Logged(kReset));
        EXPECT_TRUE(ClassInForce(0x01));
        // And it has no echo left that would swallow the next one.
        WriteFile(kPolicyFile, kAudioPolicy);
        ASSERT_TRUE(WaitFor([&] { return Logged(kReset); }));
        EXPECT_EQ(ReadFile(kStatusFile), "SUCCESS");
    });
}

// For as long as a writer takes, the rules are those of the last good policy.
TEST_F(WatcherRestoreTest, WhileSomebodyWritesTheBackupIsInForce) {
    InProcessWithGoodPolicy([&] {
        base::unique_fd writer(open(kPolicyFile, O_WRONLY | O_CLOEXEC));
        WriteFile(kPolicyFile, "<usbconfig mode='blacklist'><class>NO SUCH</class></usbconfig>");
        ASSERT_TRUE(WaitFor([&] {
            return Logged(
                    "the policy is being written: it is not "
                    "overwritten");
        }));
        ASSERT_TRUE(WaitFor([&] { return ModeInForce() == "whitelist"; }));
        DrainEvents();
        EXPECT_TRUE(ClassInForce(0x01));
        EXPECT_EQ(ReadFile(kStatusFile), "INVALID CLASS VALUE:NO SUCH");
        EXPECT_EQ(CountOf(kReloaded), 1u) << "it is not tried again and again";

        ASSERT_EQ(ftruncate(writer.get(), 0), 0);
        const std::string policy = kVideoPolicy;
        ASSERT_EQ(pwrite(writer.get(), policy.data(), policy.size(), 0),
                  static_cast<ssize_t>(policy.size()));
        writer.reset();
        ASSERT_TRUE(WaitFor([&] { return Logged(kReset); }));
        EXPECT_EQ(ReadFile(kStatusFile), "SUCCESS");
        EXPECT_TRUE(ClassInForce(0x0E));
    });
}

// Somebody has put a link in the policy's place, to a file of his choice.
TEST_F(WatcherRestoreTest, ALinkIsNotWrittenThroughAndTheBackupIsInForce) {
    InProcessWithGoodPolicy([&] {
        constexpr char kVictim[] = "/data/victim";
        WriteFile(kVictim, "somebody else's text");
        base::unique_fd file(open(kPolicyFile, O_WRONLY | O_CLOEXEC));
        RemoveFile(kPolicyFile);
        ASSERT_EQ(symlink(kVictim, kPolicyFile), 0);
        file.reset();
        ASSERT_TRUE(WaitFor([&] { return Logged(kRestored); }));
        ASSERT_TRUE(WaitFor([&] { return ModeInForce() == "whitelist" && ClassInForce(1); }));
        EXPECT_EQ(ReadFile(kVictim), "somebody else's text");
    });
}

// A pipe keeps nobody waiting; the rules are the last good ones.
TEST_F(WatcherRestoreTest, APipeInThePolicysPlaceHoldsNobodyUp) {
    InProcessWithGoodPolicy([&] {
        base::unique_fd file(open(kPolicyFile, O_WRONLY | O_CLOEXEC));
        RemoveFile(kPolicyFile);
        ASSERT_EQ(mkfifo(kPolicyFile, 0600), 0);
        { const base::unique_fd both(open(kPolicyFile, O_RDWR | O_NONBLOCK | O_CLOEXEC)); }
        file.reset();
        ASSERT_TRUE(WaitFor([&] { return Logged(kRestored); }));
        ASSERT_TRUE(WaitFor([&] { return ClassInForce(1); }));
        DrainEvents();
        RemoveFile(kPolicyFile);
        WriteFile(kPolicyFile, kVideoPolicy);
        ASSERT_TRUE(WaitFor([&] { return Logged(kReset); }));
        EXPECT_EQ(ReadFile(kStatusFile), "SUCCESS");
    });
}

TEST_F(WatcherRestoreTest, APipeInTheStatusFilesPlaceHoldsNobodyUp) {
    InWatchedProcess([&] {
        ASSERT_EQ(mkfifo(kStatusFile, 0600), 0);
        WriteFile(kPolicyFile, kAudioPolicy);
        EXPECT_TRUE(WaitFor([&] { return Logged(kReset); }));
        EXPECT_TRUE(ClassInForce(0x01));
        EXPECT_EQ(ReadFile(kPolicyBackupFile), kAudioPolicy);
    });
}

// What was seen to be lost: a truncated file and, within milliseconds, the good one. Each round has
// a policy of its own, so that none is taken for that of an earlier one.
TEST_F(WatcherRestoreTest, ATruncatedPolicyAndThenTheGoodOneThousandsOfTimes) {
    const unsigned seed = std::random_device{}();
    RecordProperty("seed", std::to_string(seed));
    constexpr int kRounds = 2000;
    ExpectPassesInChild([&] {
        SCOPED_TRACE("seed " + std::to_string(seed));
        // What the watcher says of itself would fill the memory.
        base::SetLogger([](base::LogId, base::LogSeverity, const char*, const char*, unsigned,
                           const char*) {});
        std::mt19937 random(seed);
        VUsbService::registerFileObserverViaThread();
        const auto policy = [](int round) {
            return "<usbconfig mode='whitelist'><class>USB_CLASS_AUDIO</class><vid vendorid='" +
                   std::to_string(round) + "'/></usbconfig>\n";
        };
        // A write before it watches is not seen.
        ASSERT_TRUE(WaitFor([&] {
            WriteFile(kPolicyFile, policy(0));
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            return ReadFile(kPolicyBackupFile) == policy(0);
        }));
        for (int round = 1; round <= kRounds; ++round) {
            WriteFile(kPolicyFile, policy(round).substr(0, random() % 40));
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
            WriteFile(kPolicyFile, policy(round));
            ASSERT_TRUE(WaitFor([&] {
                return ReadFile(kStatusFile) == "SUCCESS" &&
                       ReadFile(kPolicyBackupFile) == policy(round);
            })) << "round "
                << round << ": " << ReadFile(kStatusFile) << "\npolicy " << ReadFile(kPolicyFile)
                << "backup " << ReadFile(kPolicyBackupFile);
            const PolicyReadLock lock;
            ASSERT_EQ(ReadFile(kPolicyFile), policy(round));
            ASSERT_TRUE(Util::validateVid(round));
        }
    });
}

}  // namespace
}  // namespace android::vus
