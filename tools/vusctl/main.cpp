// SPDX-License-Identifier: Apache-2.0
//
// vusctl: asks the daemon, and changes its policy. See client.h.

#include <signal.h>
#include <unistd.h>

#include <iostream>

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>

#include "android/vus/paths.h"
#include "tools/vusctl/client.h"

namespace {

using android::sp;
using android::vus::IVUsbService;

// Never waits: a missing service is an answer, too.
sp<IVUsbService> find_service() {
    // libbinder would end the process on a machine without the driver.
    if (access("/dev/binder", R_OK | W_OK) != 0) return nullptr;
    android::ProcessState::self()->startThreadPool();
    return android::interface_cast<IVUsbService>(android::defaultServiceManager()->checkService(
            android::String16(android::vus::kServiceName)));
}

sigset_t interrupts() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

void wait_for_interrupt() {
    const sigset_t signals = interrupts();
    int caught = 0;
    sigwait(&signals, &caught);
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (!words.empty() && words[0] == "watch") {
        // Before any thread is started, so that none of them takes the signal.
        const sigset_t signals = interrupts();
        sigprocmask(SIG_BLOCK, &signals, nullptr);
    }
    return android::vus::ctl::Client(find_service, std::cout, std::cerr, STDOUT_FILENO,
                                     wait_for_interrupt)
            .Run(words);
}
