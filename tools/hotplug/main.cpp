// SPDX-License-Identifier: Apache-2.0
//
// vus_hotplug: tells the daemon of devices that come and go. See hotplug.h.

#include <stdio.h>
#include <unistd.h>

#include <binder/ProcessState.h>

#include "tools/hotplug/hotplug.h"
#include "tools/hotplug/options.h"

namespace {

using android::vus::hotplug::Hotplug;
using android::vus::hotplug::kUsage;
using android::vus::hotplug::Options;

void print_line(const std::string& line) {
    // One call a line, so that lines of several threads do not mix.
    printf("%s\n", line.c_str());
    fflush(stdout);
}

int run(const Options& options) {
    if (access("/dev/binder", R_OK | W_OK) != 0) {
        perror("vus_hotplug: /dev/binder");
        return 1;
    }
    android::ProcessState::self()->startThreadPool();
    Hotplug hotplug(options.verbose ? print_line : std::function<void(const std::string&)>());
    if (!options.once) {
        hotplug.run();
        return 1;
    }
    if (hotplug.run_once()) return 0;
    fprintf(stderr, "vus_hotplug: the daemon is not running\n");
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    const Options options =
            android::vus::hotplug::parse_options(std::vector<std::string>(argv + 1, argv + argc));
    if (!options.error.empty()) {
        fprintf(stderr, "vus_hotplug: %s\n%s", options.error.c_str(), kUsage);
        return 2;
    }
    if (options.help) {
        fputs(kUsage, stdout);
        return 0;
    }
    return run(options);
}
