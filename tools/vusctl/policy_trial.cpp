// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/policy_trial.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <iterator>
#include <utility>

#include <android-base/file.h>
#include <android-base/unique_fd.h>

#include "android/vus/paths.h"
#include "tools/vusctl/context.h"
#include "tools/vusctl/in_force.h"
#include "tools/vusctl/policy_tool.h"

namespace android::vus::ctl {

namespace {

using base::unique_fd;
using std::chrono::seconds;

constexpr char kTrialFile[] = "/data/system/usbdeviceconfig/usb_device_config.trial";
constexpr char kNewFile[] = "/data/system/usbdeviceconfig/usb_device_config.new";
// What vusctl tells the guard; its silence, when it dies, is the third thing.
constexpr char kBegun = 'b', kCancelled = 'c';

int fail(std::ostream& err, const std::string& what) {
    err << "vusctl: " << what << "\n";
    return kFailed;
}

int fail_with_errno(std::ostream& err, const std::string& what) {
    return fail(err, what + ": " + strerror(errno));
}

// With the owner and mode of the policy, and on the disk.
bool write_new(const std::string& content) {
    struct stat before = {};
    const bool known = stat(kPolicyFile, &before) == 0;
    constexpr int kNew = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
    const unique_fd fd(open(kNewFile, kNew, 0600));
    if (!fd.ok() || !base::WriteStringToFd(content, fd.get())) return false;
    fchmod(fd.get(), known ? before.st_mode & 07777 : 0644);
    if (known && fchown(fd.get(), before.st_uid, before.st_gid) != 0 && errno != EPERM)
        return false;
    return fsync(fd.get()) == 0;
}

// Puts a file in the policy's place without the daemon's reading it: it hears of files that are
// closed after writing, and not of those that are renamed. A power cut finds it there, too: until
// the directory is on the disk, it would find the file before.
bool rename_over_policy(const std::string& content) {
    unlink(kNewFile);  // of a vusctl that was killed, somebody else's it may be
    if (write_new(content) && rename(kNewFile, kPolicyFile) == 0) return sync_policy_directory();
    const int failure = errno;
    unlink(kNewFile);
    errno = failure;
    return false;
}

// The daemon hears of what is closed that could have been written. A power cut finds the policy as
// it is, which it would not if it were written again.
void have_it_read() {
    const unique_fd fd(open(kPolicyFile, O_WRONLY | O_CLOEXEC));
}

// In place: this the daemon reads. If it has gone meanwhile, its next start does.
void put_back_in_place(const std::string& content) {
    const unique_fd fd(open(kPolicyFile, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (fd.ok()) base::WriteStringToFd(content, fd.get());
}

// The trial file, held as long as this lives, here or in the guard. A new one is the group's from
// its first moment: who wrote it may be killed, or be another one than who keeps it.
unique_fd open_trial(int flags) {
    const mode_t usual = umask(0);
    unique_fd trial(open(kTrialFile, flags | O_CLOEXEC | O_NOFOLLOW, 0660));
    const int failure = errno;
    umask(usual);
    errno = failure;
    return trial;
}

bool is_held(int fd) {
    return flock(fd, LOCK_EX | LOCK_NB) != 0;
}

bool is_removed(int fd) {
    struct stat now = {};
    return fstat(fd, &now) != 0 || now.st_nlink == 0;
}

// What asks the guard to end: it takes the policy back then, and at once.
sigset_t guard_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, number);
    return signals;
}

// The guard's life. Ends the process.
class Guard {
  public:
    Guard(unique_fd from_vusctl, unique_fd trial, std::string tried, std::string last_good)
          : from_vusctl_(std::move(from_vusctl)),
            trial_(std::move(trial)),
            tried_(std::move(tried)),
            last_good_(std::move(last_good)) {}

    [[noreturn]] void live(seconds time) {
        leave_terminal();
        char word = 0;
        const ssize_t told = TEMP_FAILURE_RETRY(read(from_vusctl_.get(), &word, 1));
        if (told == 1 && word == kCancelled) {
            unlink(kTrialFile);
        } else {
            if (told == 1) wait(time);
            take_back();
        }
        _exit(0);
    }

  private:
    static void leave_terminal() {
        setsid();
        if (chdir("/") != 0) _exit(1);
        const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
        for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(null, fd);
    }

    // Until the time is over, asleep or not, or somebody wants an end of it.
    static void wait(seconds time) {
        const sigset_t signals = guard_signals();
        const unique_fd asked(signalfd(-1, &signals, SFD_CLOEXEC));
        const unique_fd timer(timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC));
        itimerspec end = {};
        end.it_value.tv_sec = time.count();
        timerfd_settime(timer.get(), 0, &end, nullptr);
        pollfd sources[] = {{asked.get(), POLLIN, 0}, {timer.get(), POLLIN, 0}};
        while (poll(sources, std::size(sources), -1) < 0 && errno == EINTR) {
        }
    }

    void take_back() {
        if (is_removed(trial_.get()) || unlink(kTrialFile) != 0) return;  // it was kept
        std::string now;
        if (!base::ReadFileToString(kPolicyFile, &now, /*follow_symlinks=*/true)) now.clear();
        if (now == last_good_) {
            have_it_read();
        } else if (is_ours(now)) {
            put_back_in_place(last_good_);
        }
    }

    // Whether what is on disk is the policy on trial, or none: vusctl died before the last good one
    // was there again, or the daemon crashed and put its copy there, with a line feed behind it. A
    // third policy was put there by somebody who knew what he wanted.
    bool is_ours(const std::string& now) const {
        return now == tried_ || now == tried_ + "\n" || now.empty();
    }

    const unique_fd from_vusctl_, trial_;
    const std::string tried_, last_good_;
};

// vusctl's end of the guard.
class GuardLine {
  public:
    // False if there is no guard; then there must be no trial.
    bool start(unique_fd trial, const std::string& tried, const std::string& last_good,
               seconds time) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return false;
        to_guard_.reset(ends[0]);
        unique_fd from_vusctl(ends[1]);
        // Blocked in the guard from its first moment: a signal then waits until it is listened to.
        const sigset_t signals = guard_signals();
        sigset_t before;
        sigprocmask(SIG_BLOCK, &signals, &before);
        // Twice: the guard is nobody's child, and vusctl waits for none.
        const pid_t child = fork();
        if (child == 0) {
            to_guard_.reset();
            const pid_t guard = fork();
            if (guard != 0) _exit(guard < 0 ? 1 : 0);
            Guard(std::move(from_vusctl), std::move(trial), tried, last_good).live(time);
        }
        sigprocmask(SIG_SETMASK, &before, nullptr);
        int status = 0;
        return child > 0 && TEMP_FAILURE_RETRY(waitpid(child, &status, 0)) == child &&
               WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

    void tell(char word) {
        send(to_guard_.get(), &word, 1, MSG_NOSIGNAL);
        to_guard_.reset();
    }

  private:
    unique_fd to_guard_;
};

// What the trial ends with: the policy on disk, if that is what is in force. A trial whose guard
// was killed has left it there.
bool read_last_good(bool stale_trial, std::string* content, std::ostream& err) {
    const OnDisk on_disk = compare_with_disk();
    if (on_disk != OnDisk::kInForce && !(stale_trial && on_disk == OnDisk::kNotInForce)) {
        fail(err, "not tried: " + on_disk_text(on_disk));
        return false;
    }
    if (base::ReadFileToString(kPolicyFile, content, /*follow_symlinks=*/true)) return true;
    fail_with_errno(err, std::string("cannot read ") + kPolicyFile);
    return false;
}

}  // namespace

int try_policy(const std::string& content, seconds time, std::ostream& out, std::ostream& err) {
    struct stat before = {};
    const bool stale = stat(kTrialFile, &before) == 0;
    unique_fd trial = open_trial(O_RDWR | O_CREAT);
    if (!trial.ok()) return fail_with_errno(err, std::string("cannot write ") + kTrialFile);
    if (is_held(trial.get())) {
        return fail(err, "another policy is on trial: vusctl policy keep keeps it");
    }
    std::string last_good;
    if (!read_last_good(stale, &last_good, err)) {
        unlink(kTrialFile);
        return kFailed;
    }
    if (ftruncate(trial.get(), 0) != 0 || !base::WriteStringToFd(content, trial.get())) {
        const int status = fail_with_errno(err, std::string("cannot write ") + kTrialFile);
        unlink(kTrialFile);
        return status;
    }
    GuardLine guard;
    if (!guard.start(std::move(trial), content, last_good, time)) {
        unlink(kTrialFile);
        return fail_with_errno(err, "not tried: no guard could be started");
    }
    const int status = put_in_force(content, out, err);
    if (status == kRefused) guard.tell(kCancelled);  // the daemon has rolled it back itself
    if (status != kDone) return status;
    // Without this a start of the machine would not end the trial: the guard ends it at once.
    if (!rename_over_policy(last_good)) {
        return fail_with_errno(err, "taken back: cannot replace the policy on disk");
    }
    guard.tell(kBegun);
    out << "on trial for " << time.count() << " s: vusctl policy keep keeps it\n";
    return kDone;
}

int keep_policy(std::ostream& out, std::ostream& err) {
    const unique_fd trial = open_trial(O_RDWR);
    if (!trial.ok() && errno != ENOENT) {
        return fail_with_errno(err, std::string("cannot open ") + kTrialFile);
    }
    std::string content;
    // Nobody holds what a guard left that was killed: that trial cannot be told from one that
    // ended.
    const bool held = trial.ok() && is_held(trial.get());
    if (!held || !base::ReadFdToString(trial.get(), &content)) {
        err << "vusctl: no policy is on trial\n";
        return kRefused;
    }
    if (!is_in_force(content)) {
        err << "vusctl: too late: the daemon has loaded another policy since\n";
        return kRefused;
    }
    if (is_removed(trial.get()) || unlink(kTrialFile) != 0) {
        err << "vusctl: too late: the policy was taken back\n";
        return kRefused;
    }
    if (!rename_over_policy(content)) {
        return fail_with_errno(err, "in force, but cannot replace the policy on disk");
    }
    out << "kept\n";
    return kDone;
}

void end_trial() {
    unlink(kTrialFile);
}

}  // namespace android::vus::ctl
