// SPDX-License-Identifier: Apache-2.0

// Calls of the kernel that are tried again for want of descriptors or of memory: a moment later
// somebody else may have given theirs back, and a device must not be taken for another one, or for
// none, because a file could not be opened.

#pragma once

#include <errno.h>

#include <chrono>
#include <thread>

namespace android::vus {

// How often a call is tried, and how long is waited in between.
inline constexpr int kAttempts = 10;
inline constexpr std::chrono::milliseconds kAttemptPause(10);

inline bool is_want_of_means(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM;
}

// What `call` answers: the first that is not -1 for want of means, or the last one. errno is that
// of the answer.
template <typename Call>
auto insistently(const Call& call) {
    for (int attempt = 1;; ++attempt) {
        const auto answer = call();
        if (answer != -1 || !is_want_of_means(errno) || attempt == kAttempts) return answer;
        std::this_thread::sleep_for(kAttemptPause);
    }
}

}  // namespace android::vus
