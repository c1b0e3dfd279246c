// SPDX-License-Identifier: Apache-2.0
//
// vusctl: asks the daemon, and changes its policy. See client.h.

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <iostream>
#include <iterator>

#include <android-base/unique_fd.h>
#include <binder/ProcessState.h>

#include "tools/common/interrupts.h"
#include "tools/common/service_finder.h"
#include "tools/vusctl/client.h"

namespace {

using android::base::unique_fd;
using android::vus::FoundService;

FoundService find_service() {
    FoundService found = android::vus::find_service();
    // For callbacks, and the notice of the daemon's death.
    if (found.service != nullptr) android::ProcessState::self()->startThreadPool();
    return found;
}

void wait_for_either(int one, int other) {
    pollfd sources[] = {{one, POLLIN, 0}, {other, POLLIN, 0}};
    while (poll(sources, std::size(sources), -1) <= 0) {
    }
}

// Of a terminal's line; 0 if it is none.
size_t width_of(int fd) {
    winsize size = {};
    if (ioctl(fd, TIOCGWINSZ, &size) != 0) return 0;
    return size.ws_col == 0 ? 80 : size.ws_col;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    // Every other command ends at once, as programs do.
    unique_fd interrupted;
    if (!words.empty() && words[0] == "watch") interrupted = android::vus::open_interrupts();
    android::vus::ctl::Terminal terminal;
    if (isatty(STDIN_FILENO) == 1 && isatty(STDERR_FILENO) == 1) terminal.answers = &std::cin;
    terminal.width = width_of(STDOUT_FILENO);
    return android::vus::ctl::Client(
                   find_service, std::cout, std::cerr, STDOUT_FILENO,
                   [&interrupted](int fd) { wait_for_either(interrupted.get(), fd); }, terminal)
            .Run(words);
}
