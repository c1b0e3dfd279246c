// SPDX-License-Identifier: Apache-2.0
//
// The stack trace of the crash handler. Nothing else knows the platform's unwinder.

#pragma once

namespace android::vus {

// Logs where the calling thread is, a line for each frame, or that it cannot be told. Allocates,
// and is not safe in a signal handler of a process that means to go on.
void logStackTrace();

}  // namespace android::vus
