// SPDX-License-Identifier: Apache-2.0

#include <android-base/logging.h>

#include "android/vus/daemon.h"
#include "android/vus/vu_service.h"

// The logging library is used as it starts, without InitLogging: the default tag and INFO from
// the first line on, and no environment variable that could silence an admission daemon.
int main(int argc, char** argv) {
    // The address of the argument vector, not its texts, on purpose.
    LOG(INFO) << "vus main called with argc: " << argc << "and argv: " << argv;

    if (android::vus::wantsStartupTasks(argc, argv)) {
        android::vus::RunStartupTasks();
        return 0;
    }
    android::vus::installCrashHandler();
    android::vus::ignoreBrokenPipes();
    android::vus::VUsbService::Register();
    android::vus::serveBinderCalls();
    return 0;
}
