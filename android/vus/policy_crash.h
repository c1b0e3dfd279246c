// SPDX-License-Identifier: Apache-2.0

// The roll-back of a crash whose handler crashed or hung itself. For policy_files.cpp only.
//
// Nothing here can be counted on but system calls: the heap may be corrupted, and the crashed
// thread may hold any lock. So both functions are async-signal-safe, and the memory that they need
// is there from the start (it costs nothing until it is used).

#pragma once

namespace android::vus {

inline constexpr char kCrashStatus[] = "Unable to apply the USB Admin config rules";

// The roll-back has been done in the usual way: nothing is left to do.
void crashRolledBack();

// Puts the backup over the policy and kCrashStatus into the status file, if that is still to do.
void rollBackByPlainCalls();

}  // namespace android::vus
