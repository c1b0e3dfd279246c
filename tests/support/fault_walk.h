// SPDX-License-Identifier: Apache-2.0
//
// A walk over all system calls that something makes: each of them fails once.

#pragma once

#include <errno.h>
#include <stddef.h>

#include <filesystem>
#include <functional>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/cases.h"

namespace android::vus {

struct Fault {
    const char* name;
    int error;
};

// A broken disk, a full one, no descriptors, no memory.
inline constexpr Fault kBroken = {"EIO", EIO};
inline constexpr Fault kFull = {"ENOSPC", ENOSPC};
inline constexpr Fault kNoDescriptors = {"EMFILE", EMFILE};
inline constexpr Fault kNoMemory = {"ENOMEM", ENOMEM};
inline constexpr Fault kFaults[] = {kBroken, kFull, kNoDescriptors, kNoMemory};

// Whether a call that fails so is made again for a while.
inline bool IsForAMoment(const Fault& fault) {
    return fault.error == EMFILE || fault.error == ENOMEM;
}

inline size_t OpenDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(descriptors), end(descriptors)));
}

// Has run(n) make its n-th call fail, from the first on, until it answers that there was none.
// Returns how many there were; the test's report has that as "WHAT_ERROR".
inline int WalkCalls(const std::string& what, const Fault& fault,
                     const std::function<bool(int n)>& run) {
    constexpr int kNeverEnds = 3000;
    int n = 1;
    for (; n < kNeverEnds; n += StepOfCases()) {
        SCOPED_TRACE("call " + std::to_string(n) + ": " + fault.name);
        if (!run(n) || testing::Test::HasFailure()) break;
    }
    testing::Test::RecordProperty(what + "_" + fault.name, n - 1);
    EXPECT_LT(n, kNeverEnds) << "it does not end";
    return n - 1;
}

}  // namespace android::vus
