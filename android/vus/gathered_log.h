// SPDX-License-Identifier: Apache-2.0

// The log of one piece of work, of which each line would be a call of the kernel, in as few as it
// takes. On Android the log is a service that takes its lines one by one: nothing is gathered.
//
// A process that is killed in the middle of the work, or ends by a signal that nobody handles,
// loses what is gathered, so whoever is about to wait for somebody else writes it first.

#pragma once

#ifndef __ANDROID__
#include "platform/unblocked_output.h"
#endif

namespace android::vus {

#ifdef __ANDROID__

class GatheredLog {
  public:
    GatheredLog() {}
    ~GatheredLog() {}
};
inline void writeGatheredLog() {}
inline void stopGatheringLog() {}

#else

// What its thread logs while there is one is written when the outermost goes.
using GatheredLog = platform::GatheredOutput;

// Writes what the calling thread has gathered.
inline void writeGatheredLog() {
    platform::writeGatheredOutput();
}

// The same of all threads, whose lines are written as they come from now on.
inline void stopGatheringLog() {
    platform::stopGatheringOutput();
}

#endif

}  // namespace android::vus
