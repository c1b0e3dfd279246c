// SPDX-License-Identifier: Apache-2.0
//
// What the fuzzers share.

#pragma once

#include <stddef.h>
#include <stdint.h>

#include <android-base/logging.h>

#include "tests/support/world.h"

// libFuzzer's entry points.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace android::vus {

// Enters the private root and silences the log. The log statements still run.
inline void StartFuzzing() {
    EnterPrivateRoot();
    base::SetLogger(
            [](base::LogId, base::LogSeverity, const char*, const char*, unsigned, const char*) {});
}

// Ends the run with this input as the finding.
inline void Require(bool holds) {
    if (!holds) __builtin_trap();
}

}  // namespace android::vus
