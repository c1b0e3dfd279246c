// SPDX-License-Identifier: Apache-2.0
//
// The watcher of the policy file, with real events. Each test is a process of its own, because a
// watcher watches for as long as its process lives.

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <thread>

#include <android-base/file.h>
#include <android-base/unique_fd.h>

#include "watcher_fixture.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;

TEST_F(WatcherTest, AGoodPolicyIsPutInForceConfirmedAndBackedUp) {
    InWatchedProcess([&] {
        WriteFile(kStatusFile, "INVALID MODE");
        Util::statusMessage = "INVALID MODE";
        DrainEvents();
        logs_.Clear();
        WriteFile(kPolicyFile, kAudioPolicy);
        ASSERT_TRUE(WaitFor([&] { return Logged(kReset); }));
        EXPECT_TRUE(Util::validateClass(1));
        EXPECT_EQ(ReadFile(kStatusFile), "SUCCESS");
        EXPECT_EQ(ReadFile(kPolicyBackupFile), kAudioPolicy);
        EXPECT_EQ(Util::statusMessage, "SUCCESS");
        EXPECT_THAT(OnlyFrom({ClosedEvent(kPolicyFileName), "Admin", "attribute--", "Parsing",
                              "updateErrorFile", "USB xml dest", "usb_host_reset"}),
                    ElementsAre(ClosedEvent(kPolicyFileName), kReloaded, "attribute--whitelist",
                                "Parsing status xml_parse_status 1",
                                "Parsing success, so update status file and create backup",
                                "updateErrorFile called with error message : SUCCESS",
                                "USB xml dest path is " + std::string(kPolicyBackupFile), kReset));
        EXPECT_TRUE(logs_.Errors().empty());
    });
}

TEST_F(WatcherTest, TheControllersAreResetAfterTheBackup) {
    InWatchedProcess([&] {
        const std::string mode = std::string(kSocDir) + kHighSpeedModeFile;
        WriteFile(mode, "host\n");
        WriteFile(kPolicyFile, kAudioPolicy);
        ASSERT_TRUE(WaitFor(
                [&] { return Logged("usb_host_reset mode set to host for syspath: " + mode); }));
        EXPECT_EQ(ReadFile(kPolicyBackupFile), kAudioPolicy);
    });
}

TEST_F(WatcherTest, TheSamePolicyTwiceIsAppliedTwice) {
    InWatchedProcess([&] {
        WriteFile(kPolicyFile, kAudioPolicy);
        ASSERT_TRUE(WaitFor([&] { return CountOf(kReset) == 1; }));
        RemoveFile(kPolicyBackupFile);
        WriteFile(kPolicyFile, kAudioPolicy);
        ASSERT_TRUE(WaitFor([&] { return CountOf(kReset) == 2; }));
        EXPECT_EQ(ReadFile(kPolicyBackupFile), kAudioPolicy);
    });
}

TEST_F(WatcherTest, ARejectedPolicyIsReplacedByTheBackup) {
    InWatchedProcess([&] {
        WriteFile(kPolicyFile, kAudioPolicy);
        ASSERT_TRUE(WaitFor([&] { return CountOf(kReset) == 1; }));
        DrainEvents();
        logs_.Clear();

        WriteFile(kPolicyFile, kBadPolicy);
        ASSERT_TRUE(WaitFor([&] { return CountOf("Parsing status xml_parse_status 1") == 1; }));
        DrainEvents();
        EXPECT_EQ(ReadFile(kPolicyFile), kAudioPolicy);
        EXPECT_EQ(ReadFile(kPolicyBackupFile), kAudioPolicy);
        EXPECT_EQ(ReadFile(kStatusFile), "INVALID MODE") << "why it was rejected, still";
        EXPECT_EQ(Util::statusMessage, "SUCCESS");
        EXPECT_EQ(Util::getMode(), "whitelist");
        EXPECT_TRUE(Util::validateClass(1));
        EXPECT_THAT(OnlyFrom({"Admin", "Parsing", "usb_host_reset"}),
                    ElementsAre(kReloaded, "Parsing status xml_parse_status 0", kRestored,
                                kReloaded, "Parsing status xml_parse_status 1"));
        EXPECT_THAT(logs_.Lines(), Contains("I " + std::string(kRestored)));
    });
}

TEST_F(WatcherTest, AfterARollBackTheNextGoodPolicyIsAppliedAgain) {
    InWatchedProcess([&] {
        WriteFile(kPolicyFile, kAudioPolicy);
        ASSERT_TRUE(WaitFor([&] { return CountOf(kReset) == 1; }));
        WriteFile(kPolicyFile, kBadPolicy);
        ASSERT_TRUE(WaitFor([&] { return CountOf("Parsing status xml_parse_status 1") == 2; }));
        DrainEvents();
        WriteFile(kPolicyFile, kVideoPolicy);
        ASSERT_TRUE(WaitFor([&] { return CountOf(kReset) == 2; }));
        EXPECT_EQ(ReadFile(kStatusFile), "SUCCESS");
        EXPECT_EQ(ReadFile(kPolicyBackupFile), kVideoPolicy);
    });
}

// Without a good backup the restore fails to load, too, and is restored again, for ever.
TEST_F(WatcherTest, AMissingBackupEmptiesThePolicyAndIsTriedAgain) {
    InWatchedProcess([&] {
        WriteFile(kPolicyFile, kBadPolicy);
        ASSERT_TRUE(WaitFor([&] { return CountOf(kRestored) >= 5; }));
        EXPECT_EQ(ReadFile(kPolicyFile), "");
        EXPECT_FALSE(Logged(kReset));
    });
}

TEST_F(WatcherTest, ABadBackupIsTriedAgain) {
    InWatchedProcess([&] {
        WriteFile(kPolicyBackupFile, "<usbconfig/>\n");
        WriteFile(kPolicyFile, kBadPolicy);
        ASSERT_TRUE(WaitFor([&] { return CountOf(kRestored) >= 5; }));
        ASSERT_TRUE(WaitFor([&] { return ReadFile(kStatusFile) == "MODE NOT PRESENT"; }));

        // The first policy that loads ends the loop; it counts as the restored one. The backup
        // changes in one step, so that no half of it is restored.
        const std::string aside = std::string(kConfigDir) + "/aside";
        WriteFile(aside, kVideoPolicy);
        ASSERT_EQ(rename(aside.c_str(), kPolicyBackupFile), 0);
        ASSERT_TRUE(WaitFor([&] { return Logged("Parsing status xml_parse_status 1"); }));
        DrainEvents();
        EXPECT_FALSE(Logged(kReset));
        EXPECT_EQ(ReadFile(kStatusFile), "MODE NOT PRESENT");
    });
}

TEST_F(WatcherTest, OtherFilesAreNoPolicy) {
    InWatchedProcess([&] {
        const std::string dir = std::string(kConfigDir) + "/";
        for (const char* name :
             {"status.txt", "usb_device_config_backup.xml", "usb_device_config.xm",
              "usb_device_config.xmll", "USB_DEVICE_CONFIG.XML", "xusb_device_config.xml"}) {
            WriteFile(dir + name, kAudioPolicy);
            ASSERT_TRUE(WaitFor([&] { return Logged(ClosedEvent(name)); })) << name;
        }
        EXPECT_FALSE(Logged(kReloaded));
    });
}

TEST_F(WatcherTest, OnlyAClosedWriteCounts) {
    WriteFile(kPolicyFile, kAudioPolicy);
    InWatchedProcess([&] {
        ReadFile(kPolicyFile);
        chmod(kPolicyFile, 0600);
        const std::string aside = std::string(kConfigDir) + "/aside";
        ASSERT_EQ(rename(kPolicyFile, aside.c_str()), 0);
        ASSERT_EQ(rename(aside.c_str(), kPolicyFile), 0);
        RemoveFile(kPolicyFile);
        MakeDir(kPolicyFile);
        DrainEvents();
        EXPECT_THAT(OnlyFrom({"CLOSE_WRITE", "Admin"}), ElementsAre(ClosedEvent("marker1")));
    });
}

TEST_F(WatcherTest, EventsOfTheDirectoryItselfAreSkipped) {
    InWatchedProcess([&] {
        chmod(kConfigDir, 0700);
        for (const auto& entry : std::filesystem::directory_iterator(kConfigDir)) (void)entry;
        DrainEvents();
        EXPECT_THAT(OnlyFrom({"CLOSE_WRITE", "Admin"}), ElementsAre(ClosedEvent("marker1")));
    });
}

TEST_F(WatcherTest, TheLongestNameFitsTheBuffer) {
    InWatchedProcess([&] {
        const std::string name(NAME_MAX, 'x');
        WriteFile(std::string(kConfigDir) + "/" + name, "");
        ASSERT_TRUE(WaitFor([&] { return Logged(ClosedEvent(name)); }));
        WriteFile(kPolicyFile, kAudioPolicy);
        ASSERT_TRUE(WaitFor([&] { return Logged(kReset); }));
    });
}

TEST_F(WatcherTest, SeveralEventsOfOneReadAreHandledInOrderAndNoneIsDropped) {
    InWatchedProcess([&] {
        Gate gate;
        HoldAt(kReset, &gate);
        WriteFile(kPolicyFile, kAudioPolicy);
        ASSERT_TRUE(WaitFor([&] { return Logged(kReset); }));
        logs_.Clear();
        WriteFile(std::string(kConfigDir) + "/a", "");
        WriteFile(kPolicyFile, kVideoPolicy);
        WriteFile(kPolicyFile, kVideoPolicy + std::string("<!-- -->\n"));
        WriteFile(std::string(kConfigDir) + "/b", "");
        gate.Open();
        ASSERT_TRUE(WaitFor([&] { return Logged(ClosedEvent("b")); }));
        EXPECT_THAT(OnlyFrom({ClosedEvent("a"), ClosedEvent("b"), ClosedEvent(kPolicyFileName),
                              kReloaded}),
                    ElementsAre(ClosedEvent("a"), ClosedEvent(kPolicyFileName), kReloaded,
                                ClosedEvent(kPolicyFileName), kReloaded, ClosedEvent("b")));
    });
}

// The start and the end of the thread.

TEST_F(WatcherTest, StartingTheThreadIsLogged) {
    InWatchedProcess([&] {
        ASSERT_TRUE(WaitFor([&] { return Logged("registerFileObserverViaThread result--0"); }));
        EXPECT_TRUE(logs_.Errors().empty());
    });
}

TEST_F(WatcherTest, TheDescriptorIsNotInherited) {
    InWatchedProcess([&] {
        const int descriptor = InotifyDescriptor();
        ASSERT_GE(descriptor, 0);
        EXPECT_EQ(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        EXPECT_EQ(fcntl(descriptor, F_GETFL) & O_NONBLOCK, 0);
    });
}

TEST_F(WatcherTest, AMissingDirectoryIsLogged) {
    ExpectPassesInChild([&] {
        RemoveTree(kConfigDir);
        VUsbService::registerFileObserverViaThread();
        const std::string failure =
                "-1 < 0 Could not register INotify for" + std::string(kConfigDir);
        ASSERT_TRUE(WaitFor([&] { return Logged(failure); }));
        EXPECT_THAT(logs_.Errors(), ElementsAre(failure));
        EXPECT_THAT(OnlyFrom({"No directory", "-1 <"}), ElementsAre("No directory", failure));
    });
}

TEST_F(WatcherTest, AFileInThePlaceOfTheDirectoryIsLoggedAndWatched) {
    ExpectPassesInChild([&] {
        RemoveTree(kConfigDir);
        WriteFile(kConfigDir, "");
        VUsbService::registerFileObserverViaThread();
        ASSERT_TRUE(WaitFor([&] { return Logged("registered successfully file observer"); }));
        EXPECT_TRUE(Logged("No directory"));
    });
}

TEST_F(WatcherTest, WithoutADescriptorTheThreadEnds) {
    ExpectPassesInChild([&] {
        rlimit usual;
        ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
        const rlimit none = {0, usual.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
        const void* result = VUsbService::registerFileObserver(nullptr);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &usual), 0);
        EXPECT_EQ(result, nullptr);
        EXPECT_THAT(logs_.Errors(),
                    ElementsAre("-1 < 0 Could not register INotify for" + std::string(kConfigDir),
                                "Could not get read event, Bad file descriptor"));
    });
}

TEST_F(WatcherTest, AnInterruptedReadIsTriedAgain) {
    ExpectPassesInChild([&] {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
        std::thread watcher([] { VUsbService::registerFileObserver(nullptr); });
        ASSERT_TRUE(WaitFor([&] { return Logged("registered successfully file observer"); }));
        // A signal that comes before the thread reads interrupts nothing: send until one does.
        ASSERT_TRUE(WaitFor([&] {
            pthread_kill(watcher.native_handle(), SIGUSR1);
            return Logged("(errno == EINTR)");
        }));
        WriteFile(kPolicyFile, kAudioPolicy);
        EXPECT_TRUE(WaitFor([&] { return Logged(kReset); }));
        EXPECT_TRUE(logs_.Errors().empty());
        watcher.detach();
    });
}

TEST_F(WatcherTest, AReadThatFailsEndsTheThread) {
    ExpectPassesInChild([&] {
        void* result = this;
        std::thread watcher([&] { result = VUsbService::registerFileObserver(nullptr); });
        ASSERT_TRUE(WaitFor([&] { return Logged("registered successfully file observer"); }));
        // The read under way keeps the old descriptor until one more event; the next one fails.
        const int unreadable = open("/dev/null", O_WRONLY | O_CLOEXEC);
        ASSERT_GE(dup2(unreadable, InotifyDescriptor()), 0);
        MakeDir(std::string(kConfigDir) + "/event");
        watcher.join();
        EXPECT_EQ(result, nullptr);
        EXPECT_THAT(logs_.Errors(), ElementsAre("Could not get read event, Bad file descriptor"));
    });
}

// What the kernel says when it has dropped events.
TEST_F(WatcherTest, LostEventsAreAnsweredByALoad) {
    ExpectPassesInChild([&] {
        std::thread watcher([] { VUsbService::registerFileObserver(nullptr); });
        ASSERT_TRUE(WaitFor([&] { return Logged("registered successfully file observer"); }));
        WriteFile(kPolicyFile, kAudioPolicy);
        ASSERT_TRUE(WaitFor([&] { return CountOf(kReset) == 1; }));
        DrainEvents();
        base::unique_fd reader;
        base::unique_fd writer;
        ASSERT_TRUE(base::Pipe(&reader, &writer));
        ASSERT_GE(dup2(reader.get(), InotifyDescriptor()), 0);
        // An event of the directory ends a read under way; one of the pipe shows that it is read.
        MakeDir(std::string(kConfigDir) + "/event");
        inotify_event ignored = {};
        ignored.mask = IN_IGNORED;
        ASSERT_TRUE(base::WriteFully(writer, &ignored, sizeof(ignored)));
        ASSERT_TRUE(WaitFor([&] {
            int unread = 0;
            return ioctl(reader.get(), FIONREAD, &unread) == 0 && unread == 0;
        }));
        WriteFile(kPolicyFile, kVideoPolicy);  // nobody hears of it
        inotify_event lost = {};
        lost.wd = -1;
        lost.mask = IN_Q_OVERFLOW;
        ASSERT_TRUE(base::WriteFully(writer, &lost, sizeof(lost)));
        ASSERT_TRUE(WaitFor([&] { return CountOf(kReset) == 2; }));
        EXPECT_EQ(ReadFile(kPolicyBackupFile), kVideoPolicy);
        EXPECT_THAT(logs_.Lines(), Contains("W events of " + std::string(kConfigDir) +
                                            " were lost: loading the policy again"));
        writer.reset();
        watcher.join();
    });
}

// Somebody reads a file of the directory again and again while the watcher is held by a reset.
TEST_F(WatcherTest, APolicyWhoseEventIsLostIsLoaded) {
    int most = 0;
    ASSERT_EQ(sscanf(ReadFile("/proc/sys/fs/inotify/max_queued_events").c_str(), "%d", &most), 1);
    InWatchedProcess([&] {
        Gate gate;
        HoldAt(kReset, &gate);
        WriteFile(kPolicyFile, kAudioPolicy);
        ASSERT_TRUE(WaitFor([&] { return Logged(kReset); }));
        for (int reads = 0; reads < most; ++reads) {  // each is two events and more
            close(open(kStatusFile, O_RDONLY | O_CLOEXEC));
        }
        WriteFile(kPolicyFile, kVideoPolicy);
        gate.Open();
        ASSERT_TRUE(WaitFor([&] { return CountOf(kReset) == 2; }));
        EXPECT_THAT(logs_.Lines(), Contains(HasSubstr("were lost: loading the policy again")));
        EXPECT_EQ(ReadFile(kPolicyBackupFile), kVideoPolicy);
        EXPECT_EQ(ReadFile(kStatusFile), "SUCCESS");
    });
}

TEST_F(WatcherTest, AReadOfLessThanAnEventEndsTheThread) {
    ExpectPassesInChild([&] {
        std::thread watcher([] { VUsbService::registerFileObserver(nullptr); });
        ASSERT_TRUE(WaitFor([&] { return Logged("registered successfully file observer"); }));
        const int empty = open("/dev/null", O_RDONLY | O_CLOEXEC);
        ASSERT_GE(dup2(empty, InotifyDescriptor()), 0);
        MakeDir(std::string(kConfigDir) + "/event");
        watcher.join();
        EXPECT_THAT(logs_.Errors(), ElementsAre("Could not get read event, Success"));
    });
}

}  // namespace
}  // namespace android::vus
