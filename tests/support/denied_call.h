// SPDX-License-Identifier: Apache-2.0
//
// Runs something on a thread for which one system call fails: what the kernel says when it is out
// of descriptors, of memory, or of luck.

#pragma once

#include <errno.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <functional>
#include <thread>

#include <gtest/gtest.h>

namespace android::vus {

class DeniedCall {
  public:
    // The filter ends with its thread.
    static void run(unsigned call, int error, const std::function<void()>& body) {
        std::thread([&] {
            sock_filter code[] = {
                    BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
                    BPF_STMT(BPF_RET | BPF_K,
                             SECCOMP_RET_ERRNO | static_cast<unsigned>(error & SECCOMP_RET_DATA)),
                    BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
            };
            const sock_fprog program = {sizeof(code) / sizeof(code[0]), code};
            ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
            ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
            body();
        }).join();
    }
};

}  // namespace android::vus
