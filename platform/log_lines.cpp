// SPDX-License-Identifier: Apache-2.0

#include "platform/log_lines.h"

#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <time.h>
#include <unistd.h>

#include <string>

namespace android::vus::platform {

namespace {

constexpr char kSeverities[] = "VDIWEFF";

// What the lines of one thread have in common within a second.
struct Common {
    time_t second = -1;
    char text[64];  // time, process and thread
};
thread_local Common common;

// A child has its own process and thread.
void forgetInChildren() {
    [[maybe_unused]] static const int registered =
            pthread_atfork(nullptr, nullptr, [] { common.second = -1; });
}

const char* commonAt(time_t now) {
    if (common.second == now) return common.text;
    forgetInChildren();
    tm local = {};
    localtime_r(&now, &local);
    snprintf(common.text, sizeof(common.text), "%02d-%02d %02d:%02d:%02d %5d %5d ",
             local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, getpid(),
             gettid());
    common.second = now;
    return common.text;
}

}  // namespace

void writeLogLine(base::LogId /*id*/, base::LogSeverity severity, const char* tag, const char* file,
                  unsigned line, const char* message) {
    const int saved = errno;
    std::string text(tag != nullptr ? tag : "nullptr");
    text.append({' ', kSeverities[severity], ' '}).append(commonAt(time(nullptr)));
    if (file != nullptr) text.append(file).append(":").append(std::to_string(line)).append("] ");
    text.append(message).append("\n");
    fwrite(text.data(), 1, text.size(), stderr);
    errno = saved;
}

}  // namespace android::vus::platform
