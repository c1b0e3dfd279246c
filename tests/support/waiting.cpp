// SPDX-License-Identifier: Apache-2.0

#include "tests/support/waiting.h"

#include <thread>

namespace android::vus {

bool Eventually(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace android::vus
