// SPDX-License-Identifier: Apache-2.0

#include <android-base/logging.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include "tests/support/world.h"

// For ThreadSanitizer, of this program and of a vusd that it runs: the crash handler is not
// restricted to what is safe in a signal handler, and the watcher's thread is never joined.
constexpr char kSanitizerOptions[] =
        "report_signal_unsafe=0:report_thread_leaks=0:atexit_sleep_ms=50";
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
    return kSanitizerOptions;
}

// The counters behind sp<> are in the platform's libutils, which is not instrumented: that the last
// owner's delete comes after every other owner's release is not seen. AddressSanitizer sees a
// delete that is too early.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() {
    return "race:android::RefBase::decStrong\n"
           "race:android::sp<*>::~sp\n";  // where decStrong ended in a jump
}

// libbase makes its lock at the first line that is logged, which ThreadSanitizer cannot see from
// outside that library: this is the first line, before there are threads.
static void LogFirstLine() {
    const android::vus::LogCapture unseen;
    LOG(INFO) << "the tests begin";
}

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    setenv("TSAN_OPTIONS", kSanitizerOptions, /*overwrite=*/0);
    LogFirstLine();
    android::vus::EnterPrivateRoot();
    return RUN_ALL_TESTS();
}
