// SPDX-License-Identifier: Apache-2.0
//
// What the analysing commands end with. Those up to 4 are vusctl's.

#pragma once

namespace android::vus::workbench {

inline constexpr int kClean = 0;
inline constexpr int kRefused = 1;   // the policy is rejected, or does what a gate forbids
inline constexpr int kUsage = 2;     // called wrongly
inline constexpr int kFailed = 4;    // a file cannot be read
inline constexpr int kFindings = 5;  // the linter found something, and was told to be strict

}  // namespace android::vus::workbench
