// SPDX-License-Identifier: Apache-2.0

#include <android-base/logging.h>

#include "android/vus/daemon.h"
#include "android/vus/vu_service.h"
#ifndef __ANDROID__
#include "platform/footprint.h"
#include "platform/log_lines.h"
#include "platform/unblocked_output.h"
#endif

// The logging library is used as it starts, on a host with a quicker writer of its lines, and
// without InitLogging: the default tag and INFO from
// the first line on, and no environment variable that could silence an admission daemon. On Android
// a property still can: log.tag.vusd, which is the shell's and the system's to set.
int main(int argc, char** argv) {
#ifndef __ANDROID__
    android::vus::platform::unblockStandardStreams();
    android::base::SetLogger(android::vus::platform::writeLogLine);
    android::vus::platform::shareOneHeap();
#endif
    // The address of the argument vector, not its texts (kept: oddity 1).
    LOG(INFO) << "vus main called with argc: " << argc << "and argv: " << argv;

    if (android::vus::wantsStartupTasks(argc, argv)) {
        android::vus::RunStartupTasks();
        return 0;
    }
    android::vus::installCrashHandler();
    android::vus::ignoreBrokenPipes();
    android::vus::VUsbService::Register();
#ifndef __ANDROID__
    android::vus::platform::releaseCodeOfStart();
#endif
    android::vus::serveBinderCalls();
    return 0;
}
