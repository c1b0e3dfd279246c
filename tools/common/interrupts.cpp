// SPDX-License-Identifier: Apache-2.0

#include "tools/common/interrupts.h"

#include <signal.h>
#include <sys/signalfd.h>

namespace android::vus {

base::unique_fd open_interrupts() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return base::unique_fd(signalfd(-1, &signals, SFD_CLOEXEC));
}

}  // namespace android::vus
