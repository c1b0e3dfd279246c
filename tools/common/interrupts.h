// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <android-base/unique_fd.h>

namespace android::vus {

// Readable as soon as the process is asked to end (SIGINT, SIGTERM), which these signals no longer
// do by themselves. To be called before any thread is started, so that none of them takes a signal.
base::unique_fd open_interrupts();

}  // namespace android::vus
