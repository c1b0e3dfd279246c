// SPDX-License-Identifier: Apache-2.0

#include "android/vus/stack_trace.h"

#include <cstddef>

#include <android-base/logging.h>
#include <backtrace/Backtrace.h>

namespace android::vus {

void logStackTrace() {
    // Never freed: the process is ending, and a crashed heap is best left alone.
    static Backtrace* const unwinder =
            Backtrace::Create(BACKTRACE_CURRENT_PROCESS, BACKTRACE_CURRENT_THREAD);
    const bool unwound = unwinder != nullptr && unwinder->Unwind(0);
    if (!unwound) LOG(ERROR) << "signalHandler: Failed to unwind callstack.";
    LOG(INFO) << "Stack Trace\n";
    if (unwinder == nullptr) return;
    for (size_t frame = 0; frame < unwinder->NumFrames(); ++frame) {
        LOG(ERROR) << unwinder->FormatFrameData(frame);
    }
}

}  // namespace android::vus
