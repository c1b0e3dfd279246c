// SPDX-License-Identifier: Apache-2.0

// LOG(INFO) for a text that is there already. Setting up the stream of a log line takes longer than
// all else about it, which counts where one piece of work has a line for each rule, or for each
// interface that is attached.

#pragma once

#include <string.h>

#include <string>

#include <android-base/logging.h>

namespace android::vus {

// One line, whatever is in it. Logged as from its caller's place.
inline void logLine(const std::string& text, const char* file = __builtin_FILE(),
                    unsigned line = __builtin_LINE()) {
    if (!WOULD_LOG(INFO)) return;
    const char* const slash = strrchr(file, '/');
    base::LogMessage::LogLine(slash != nullptr ? slash + 1 : file, line, base::INFO,
                              /*tag=*/nullptr, text.c_str());
}

// A line for each of the text's, as LOG(INFO) has them.
inline void logText(const std::string& text, const char* file = __builtin_FILE(),
                    unsigned line = __builtin_LINE()) {
    if (text.find('\n') == std::string::npos) return logLine(text, file, line);
    if (!WOULD_LOG(INFO)) return;
    base::LogMessage(file, line, base::INFO, /*tag=*/nullptr, /*error=*/-1).stream() << text;
}

}  // namespace android::vus
