// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/device_node.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <thread>

#include "android/vus/insistently.h"

namespace android::vus::hotplug {

namespace {

// It is under way: making it takes about as long.
constexpr std::chrono::milliseconds kBetweenLooks(2);

}  // namespace

base::unique_fd open_node(const std::string& node, int flags, const std::string& device,
                          std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (true) {
        base::unique_fd fd(insistently([&] { return open(node.c_str(), flags | O_CLOEXEC); }));
        const bool may_come = !fd.ok() && errno == ENOENT && access(device.c_str(), F_OK) == 0 &&
                              std::chrono::steady_clock::now() < deadline;
        if (!may_come) return fd;
        std::this_thread::sleep_for(kBetweenLooks);
    }
}

}  // namespace android::vus::hotplug
