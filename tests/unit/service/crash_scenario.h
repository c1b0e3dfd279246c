// SPDX-License-Identifier: Apache-2.0
//
// A crash, and what the status file says after it.

#pragma once

#include <stdint.h>

namespace android::vus {

inline constexpr char kCrashStatus[] = "Unable to apply the USB Admin config rules";

inline void CrashByWildPointer() {
    volatile uintptr_t nowhere = 8;
    *reinterpret_cast<volatile int*>(nowhere) = 1;
}

}  // namespace android::vus
