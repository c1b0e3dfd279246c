// SPDX-License-Identifier: Apache-2.0

#include "tests/support/faulty_call.h"

#include <errno.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <semaphore.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <gtest/gtest.h>

namespace android::vus {

namespace {

constexpr unsigned kCalls[] = {
        SYS_openat,     SYS_read,       SYS_write,      SYS_pread64,    SYS_pwrite64,
        SYS_getdents64, SYS_newfstatat, SYS_fstat,      SYS_readlinkat, SYS_statfs,
        SYS_fstatfs,    SYS_fcntl,      SYS_ftruncate,  SYS_renameat2,  SYS_unlinkat,
        SYS_mkdirat,    SYS_fsync,      SYS_fdatasync,  SYS_lseek,      SYS_linkat,
        SYS_flock,      SYS_faccessat,  SYS_faccessat2,
#ifdef SYS_open  // machines with a history have these as well
        SYS_open,       SYS_stat,       SYS_lstat,      SYS_readlink,   SYS_rename,
        SYS_unlink,     SYS_mkdir,      SYS_link,       SYS_access,
#endif
};

// Allows everything but the calls above, of which the listener is asked.
std::vector<sock_filter> filter() {
    std::vector<sock_filter> code = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const unsigned call : kCalls) {
        code.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
        code.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
    }
    code.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    return code;
}

// For the calling thread, until it ends. Returns the listener, or -1.
int listen() {
    std::vector<sock_filter> code = filter();
    const sock_fprog program = {static_cast<unsigned short>(code.size()), code.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return -1;
    return static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER,
                                    SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

// The sanitizers write to pipes of their own, to see what memory is there. Asked by name: to them a
// descriptor that two threads use is a race.
bool isPipe(unsigned long long fd) {
    std::string target;
    return base::Readlink("/proc/self/fd/" + std::to_string(fd), &target) &&
           base::StartsWith(target, "pipe:");
}

class Listener {
  public:
    Listener(int fd, int n, int error, const FaultyCall::Counts& counts)
          : fd_(fd), left_(n), error_(error), counts_(counts) {}

    // Until the thread has ended.
    std::optional<int> run() {
        pollfd asked = {fd_.get(), POLLIN, 0};
        while (poll(&asked, 1, -1) > 0 && (asked.revents & POLLIN) != 0) answer();
        return failed_;
    }

  private:
    void answer() {
        seccomp_notif call = {};
        if (ioctl(fd_.get(), SECCOMP_IOCTL_NOTIF_RECV, &call) != 0) return;
        seccomp_notif_resp response = {};
        response.id = call.id;
        if (isTheOne(call.data)) {
            failed_ = call.data.nr;
            response.error = -error_;
        } else {
            response.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
        }
        ioctl(fd_.get(), SECCOMP_IOCTL_NOTIF_SEND, &response);
    }

    bool isTheOne(const seccomp_data& call) {
        if (call.nr == SYS_write && isPipe(call.args[0])) return false;
        if (counts_ != nullptr && !counts_(call.nr, call.args)) return false;
        return left_ > 0 && --left_ == 0;
    }

    const base::unique_fd fd_;
    int left_;
    const int error_;
    const FaultyCall::Counts& counts_;
    std::optional<int> failed_;
};

}  // namespace

std::optional<int> FaultyCall::run(int n, int error, const std::function<void()>& body,
                                   const Counts& counts) {
    // From the filter on, the thread's calls wait for the listener: nothing that may call anything
    // can hand it over.
    int fd = -1;
    sem_t ready;
    sem_init(&ready, /*pshared=*/0, 0);
    std::thread thread([&] {
        fd = listen();
        sem_post(&ready);
        if (fd >= 0) body();
    });
    while (sem_wait(&ready) != 0) continue;
    EXPECT_GE(fd, 0) << "no filter";
    std::optional<int> failed;
    if (fd >= 0) failed = Listener(fd, n, error, counts).run();
    thread.join();
    sem_destroy(&ready);
    return failed;
}

}  // namespace android::vus
