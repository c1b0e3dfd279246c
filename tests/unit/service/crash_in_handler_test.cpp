// SPDX-License-Identifier: Apache-2.0
//
// A crash handler that crashes or hangs itself: the end is that of the first crash, and the policy
// is rolled back all the same.

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "android/vus/daemon.h"
#include "crash_scenario.h"
#include "service_fixture.h"
#include "tests/support/child_process.h"

namespace android::vus {
namespace {

constexpr char kPlainBackup[] =
        "<usbconfig mode='whitelist'>\n  <class>USB_CLASS_AUDIO</class>\n</usbconfig>\n";

void Abort() {
    abort();
}

// Runs `action` within the log line that begins with `text`, each time.
void AtLogLine(const std::string& text, void (*action)()) {
    base::SetLogger([text, action](base::LogId, base::LogSeverity, const char*, const char*,
                                   unsigned, const char* message) {
        if (strncmp(message, text.c_str(), text.size()) == 0) action();
    });
}

class CrashInHandlerTest : public ServiceTest {
  protected:
    void SetUp() override {
        ServiceTest::SetUp();
        WriteFile(kPolicyFile, "<usbconfig mode='blacklist'/> that crashes");
        WriteFile(kPolicyBackupFile, kPlainBackup);
        WriteFile(kStatusFile, "SUCCESS");
    }

    // Runs `how`, which crashes, in a child of its own; it may take this long.
    static ChildResult Crash(const std::function<void()>& how) {
        return RunInChild([&] {
            installCrashHandler();
            how();
        });
    }

    static void ExpectEndedBy(int signal, const ChildResult& child) {
        EXPECT_EQ(child.exit_status, signal);
        EXPECT_EQ(child.signal, 0);
        EXPECT_EQ(ReadFile(kPolicyFile), kPlainBackup);
        EXPECT_EQ(ReadFile(kStatusFile), kCrashStatus);
    }
};

struct Nested {
    const char* line;
    void (*first)();
    void (*second)();
    int status;
};

class NestedCrashTest : public CrashInHandlerTest, public ::testing::WithParamInterface<Nested> {};

TEST_P(NestedCrashTest, EndsAsTheFirstOneWithTheRollBackDone) {
    ExpectEndedBy(GetParam().status, Crash([] {
                      AtLogLine(GetParam().line, GetParam().second);
                      GetParam().first();
                  }));
}

std::vector<Nested> EveryLineAndPair() {
    std::vector<Nested> cases;
    for (const char* line :
         {"Segmentation fault", " USB xml src path", "USB xml dest path", "  <class>",
          "Usb Device config file copied", "updateErrorFile called", "Stack Trace", "#00 pc"}) {
        cases.push_back({line, CrashByWildPointer, CrashByWildPointer, SIGSEGV});
        cases.push_back({line, CrashByWildPointer, Abort, SIGSEGV});
        cases.push_back({line, Abort, CrashByWildPointer, SIGABRT});
        cases.push_back({line, Abort, Abort, SIGABRT});
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(All, NestedCrashTest, ::testing::ValuesIn(EveryLineAndPair()));

TEST_F(CrashInHandlerTest, TheBackupIsPutBackLineByLineByPlainCallsToo) {
    WriteFile(kPolicyBackupFile, "<usbconfig mode='default'/>");
    Crash([] {
        AtLogLine("Segmentation fault", Abort);
        abort();
    });
    EXPECT_EQ(ReadFile(kPolicyFile), "<usbconfig mode='default'/>\n");
}

TEST_F(CrashInHandlerTest, WithoutABackupThePolicyIsEmptied) {
    RemoveFile(kPolicyBackupFile);
    const ChildResult child = Crash([] {
        AtLogLine("Segmentation fault", Abort);
        abort();
    });
    EXPECT_EQ(child.exit_status, SIGABRT);
    EXPECT_EQ(ReadFile(kPolicyFile), "");
    EXPECT_EQ(ReadFile(kStatusFile), kCrashStatus);
}

TEST_F(CrashInHandlerTest, NothingIsWrittenThroughALink) {
    constexpr char kVictim[] = "/data/victim";
    for (void (*second)() : {Abort, +[] {}}) {
        for (const char* path : {kPolicyFile, kStatusFile}) {
            SetUp();
            RemoveFile(path);
            WriteFile(kVictim, "somebody else's text");
            ASSERT_EQ(symlink(kVictim, path), 0);
            EXPECT_EQ(Crash([second] {
                          AtLogLine("Segmentation fault", second);
                          abort();
                      }).exit_status,
                      SIGABRT);
            EXPECT_EQ(ReadFile(kVictim), "somebody else's text");
        }
    }
}

TEST_F(CrashInHandlerTest, APipeInAFilesPlaceDoesNotHoldTheEnd) {
    for (void (*second)() : {Abort, +[] {}}) {
        for (const char* path : {kPolicyFile, kPolicyBackupFile, kStatusFile}) {
            SetUp();
            RemoveFile(path);
            ASSERT_EQ(mkfifo(path, 0600), 0);
            EXPECT_EQ(Crash([second] {
                          alarm(20);  // the handler sets it anew
                          AtLogLine("Segmentation fault", second);
                          abort();
                      }).exit_status,
                      SIGABRT);
        }
    }
}

// Not for the sanitizers: they hold back signals, one within another above all, and have a heap of
// their own.
#ifndef VUS_SANITIZED
// In the middle of the restore: the policy is emptied, and the first byte is about to be written.
TEST_F(CrashInHandlerTest, ACrashBetweenEmptyingAndWriting) {
    ExpectEndedBy(SIGABRT, Crash([] {
                      static rlimit usual;
                      ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &usual), 0);
                      signal(SIGXFSZ, [](int) {
                          setrlimit(RLIMIT_FSIZE, &usual);
                          CrashByWildPointer();
                      });
                      const rlimit none = {0, usual.rlim_max};
                      ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
                      abort();
                  }));
}

// It is the watcher that crashes, in the middle of a restore for which it keeps everybody, the
// handler among them, from opening the policy.
TEST_F(CrashInHandlerTest, ACrashInTheMiddleOfAReload) {
    const std::string backup =
            std::string(kPlainBackup) + "<!-- " + std::string(1000, 'x') + " -->\n";
    WriteFile(kPolicyBackupFile, backup);
    const ChildResult child = Crash([] {
        static rlimit usual;
        ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &usual), 0);
        signal(SIGXFSZ, [](int) {
            setrlimit(RLIMIT_FSIZE, &usual);
            CrashByWildPointer();
        });
        // Enough for a status, not for the backup.
        const rlimit little = {500, usual.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &little), 0);
        static std::atomic<bool> watching{false};
        base::SetLogger([](base::LogId, base::LogSeverity, const char*, const char*, unsigned,
                           const char* message) {
            dprintf(LogDescriptor(), "%s\n", message);
            if (strcmp(message, "registered successfully file observer") == 0) watching = true;
        });
        std::thread watcher([] { VUsbService::registerFileObserver(nullptr); });
        ASSERT_TRUE(WaitFor([] { return watching.load(); }));
        WriteFile(kPolicyFile, "<usbconfig");
        watcher.join();
    });
    EXPECT_EQ(child.exit_status, SIGSEGV);
    EXPECT_EQ(ReadFile(kPolicyFile), backup);
    EXPECT_EQ(ReadFile(kPolicyBackupFile), backup);
    EXPECT_EQ(ReadFile(kStatusFile), kCrashStatus);
    EXPECT_THAT(child.log, Not(Contains(HasSubstr("ODM error"))));
}

bool TheAlarmIsSet() {
    struct sigaction action = {};
    sigaction(SIGALRM, nullptr, &action);
    return action.sa_handler != SIG_DFL;
}

// The handler may well need the heap's lock, with which the thread crashed: its alarm, which would
// take half a minute, rings a second after it was set.
void RingTheAlarmEarly() {
    std::thread([] {
        while (!TheAlarmIsSet()) usleep(1000);
        sleep(1);
        kill(getpid(), SIGALRM);
    }).detach();
}

TEST_F(CrashInHandlerTest, AHeapThatIsCorrupted) {
    const ChildResult child = Crash([] {
        RingTheAlarmEarly();
        static char* volatile block = static_cast<char*>(malloc(2000));
        static volatile size_t length = 60000;
        memset(block - 16, 0x41, length);
        free(block);
    });
    EXPECT_THAT(child.exit_status, ::testing::AnyOf(SIGABRT, SIGSEGV));
    ExpectEndedBy(child.exit_status, child);
}

void HangUntilTheAlarm() {
    ualarm(1000, 0);  // sooner than the handler has set it
    while (true) pause();
}

TEST_F(CrashInHandlerTest, AHandlerThatHangsIsEndedWithTheRollBackDone) {
    for (const char* line :
         {"Segmentation fault", " USB xml src path", "updateErrorFile called", "Stack Trace"}) {
        SetUp();
        SCOPED_TRACE(line);
        ExpectEndedBy(SIGABRT, Crash([line] {
                          AtLogLine(line, HangUntilTheAlarm);
                          abort();
                      }));
    }
}

// abort() blocks every signal but its own, on Android.
TEST_F(CrashInHandlerTest, TheAlarmReachesAThreadThatHadItBlocked) {
    ExpectEndedBy(SIGABRT, Crash([] {
                      sigset_t all;
                      sigfillset(&all);
                      sigdelset(&all, SIGABRT);
                      pthread_sigmask(SIG_SETMASK, &all, nullptr);
                      AtLogLine("Segmentation fault", HangUntilTheAlarm);
                      raise(SIGABRT);
                  }));
}

// The alarm finds another thread than the one that hangs.
TEST_F(CrashInHandlerTest, TheAlarmMayComeToAnyThread) {
    ExpectEndedBy(SIGSEGV, Crash([] {
                      AtLogLine("Segmentation fault", HangUntilTheAlarm);
                      std::thread(CrashByWildPointer).join();
                  }));
}
#endif

}  // namespace
}  // namespace android::vus
