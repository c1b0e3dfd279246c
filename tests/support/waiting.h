// SPDX-License-Identifier: Apache-2.0
//
// How every test waits for what other threads and processes do.

#pragma once

#include <chrono>
#include <functional>

namespace android::vus {

// What even a loaded machine under a sanitizer has no use for.
inline constexpr std::chrono::seconds kLongEnough{60};

// True as soon as `condition` holds, false if it does not within that time.
bool Eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds timeout = kLongEnough);

}  // namespace android::vus
