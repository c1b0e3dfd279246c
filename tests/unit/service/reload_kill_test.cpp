// SPDX-License-Identifier: Apache-2.0
//
// The watcher killed at each system call of a reload: whatever moment it is, the next daemon
// starts, a good policy still exists, and the status file tells the truth.

#include <fcntl.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>

#include <android-base/unique_fd.h>

#include "service_fixture.h"
#include "tests/support/cases.h"
#include "tests/support/child_process.h"

namespace android::vus {
namespace {

constexpr char kOld[] = "<usbconfig mode='whitelist'><class>USB_CLASS_AUDIO</class></usbconfig>\n";
constexpr char kNew[] = "<usbconfig mode='blacklist'><class>USB_CLASS_VIDEO</class></usbconfig>\n";
constexpr char kBad[] = "<usbconfig mode='whitelist'><class>USB_CLASS_DISK</class></usbconfig>\n";
constexpr int kNeverEnds = 2000;

// A process that runs the watcher and stops at each of its system calls.
class TracedWatcher {
  public:
    // `done_text` is the log line with which the reload is over, `times` how often it has come
    // then.
    TracedWatcher(const std::string& done_text, int times) : done_text_(done_text), left_(times) {
        EXPECT_TRUE(base::Pipe(&log_, &log_writer_));
        fcntl(log_.get(), F_SETFL, O_NONBLOCK);
        pid_ = fork();
        if (pid_ == 0) Watch();
        Await();
        ptrace(PTRACE_SETOPTIONS, pid_, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    }

    ~TracedWatcher() { Kill(); }

    // Runs until the watcher waits for its first event.
    void RunUntilItWaits() {
        while (alive_ && !IsReadOfEvents()) Step();
    }

    // Runs for `calls` stops at system calls, or until the reload is over. Returns whether it is.
    bool RunFor(int calls) {
        for (int call = 0; call < calls && alive_; ++call) {
            Step();
            if (ReloadIsOver()) return true;
        }
        return false;
    }

    void Kill() {
        if (!alive_) return;
        kill(pid_, SIGKILL);
        while (alive_) Await();
    }

  private:
    [[noreturn]] void Watch() {
        const int log = log_writer_.get();
        base::SetLogger([log](base::LogId, base::LogSeverity, const char*, const char*, unsigned,
                              const char* message) { dprintf(log, "%s\n", message); });
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        VUsbService::registerFileObserver(nullptr);
        _exit(1);
    }

    void Step() {
        ptrace(PTRACE_SYSCALL, pid_, nullptr, nullptr);
        Await();
    }

    void Await() {
        int status = 0;
        ASSERT_EQ(TEMP_FAILURE_RETRY(waitpid(pid_, &status, __WALL)), pid_);
        alive_ = WIFSTOPPED(status);
    }

    // The loader reads files, too; only events are read into a buffer of this size.
    bool IsReadOfEvents() const {
        struct __ptrace_syscall_info info = {};
        ptrace(PTRACE_GET_SYSCALL_INFO, pid_, sizeof(info), &info);
        return info.op == PTRACE_SYSCALL_INFO_ENTRY && info.entry.nr == SYS_read &&
               info.entry.args[2] == 512;
    }

    bool ReloadIsOver() {
        char text[4096];
        const ssize_t length = read(log_.get(), text, sizeof(text));
        if (length > 0) seen_.append(text, static_cast<size_t>(length));
        for (size_t at; left_ > 0 && (at = seen_.find(done_text_)) != std::string::npos; --left_) {
            seen_.erase(0, at + done_text_.size());
        }
        return left_ == 0;
    }

    const std::string done_text_;
    int left_;
    std::string seen_;
    base::unique_fd log_;
    base::unique_fd log_writer_;
    pid_t pid_ = -1;
    bool alive_ = true;
};

class ReloadKillTest : public ServiceTest {
  protected:
    // Kills the watcher at the n-th stop of its answer to `policy`. Returns whether the reload was
    // over before that.
    static bool KilledAt(int n, const char* policy, const char* done_text, int times) {
        WriteFile(kPolicyFile, kOld);
        WriteFile(kPolicyBackupFile, kOld);
        WriteFile(kStatusFile, "SUCCESS");
        TracedWatcher watcher(done_text, times);
        watcher.RunUntilItWaits();
        WriteFile(kPolicyFile, policy);
        return watcher.RunFor(n);
    }

    static bool Loads(const char* path) {
        Util::createMapFromConfig(path);
        return Util::xml_parse_status;
    }

    // A start of the daemon finds its way with what the killed one left.
    void ExpectTheNextDaemonCopes(int n) {
        SCOPED_TRACE("killed at stop " + std::to_string(n));
        const std::string policy = ReadFile(kPolicyFile);
        ExpectPassesInChild([&] {
            VUsbService::Register();
            EXPECT_EQ(manager_->services.size(), 1u);
            const bool in_force = Util::xml_parse_status;
            const std::string status = ReadFile(kStatusFile);
            EXPECT_EQ(status == "SUCCESS", in_force) << status;
            EXPECT_FALSE(status.empty());
            EXPECT_TRUE(in_force || Loads(kPolicyBackupFile)) << "no good policy is left";
        });
        EXPECT_EQ(ReadFile(kPolicyFile), policy) << "a start changes no policy";
    }

    // Walks the stops of a reload. Returns how many there were.
    int Walk(const char* policy, const char* done_text, int times) {
        for (int n = 1; n < kNeverEnds; n += StepOfCases()) {
            const bool over = KilledAt(n, policy, done_text, times);
            ExpectTheNextDaemonCopes(n);
            if (over || HasFailure()) return n;
        }
        ADD_FAILURE() << "the reload does not end";
        return kNeverEnds;
    }
};

TEST_F(ReloadKillTest, WhileAGoodPolicyIsTakenOver) {
    EXPECT_GT(Walk(kNew, "usb_host_reset entered:", 1), 20);
}

TEST_F(ReloadKillTest, WhileABadPolicyIsRolledBack) {
    EXPECT_GT(Walk(kBad, "Parsing status xml_parse_status 1", 1), 20);
}

}  // namespace
}  // namespace android::vus
