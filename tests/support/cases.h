// SPDX-License-Identifier: Apache-2.0
//
// How many cases a test tries that could try any number.

#pragma once

namespace android::vus {

// Of `all` cases, so many are tried: all of them in the plain build. A sanitizer makes each several
// times as long, and what it looks for are other mistakes than wrong answers: a fifth will do.
template <typename Number>
constexpr Number CasesOf(Number all) {
#ifdef VUS_SANITIZED
    return all / 5;
#else
    return all;
#endif
}

// The step with which a walk goes through cases that come one after the other.
constexpr int StepOfCases() {
#ifdef VUS_SANITIZED
    return 5;
#else
    return 1;
#endif
}

}  // namespace android::vus
