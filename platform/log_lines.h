// SPDX-License-Identifier: Apache-2.0
//
// The log of a service on a Linux host: the lines that the logging library writes to standard
// error, byte for byte, at a third of their price. The library asks the kernel for the process and
// the thread, and formats the time, for each line; what one piece of work says in fifty lines costs
// most of its time then. Here that is done once a second for each thread.

#pragma once

#include <android-base/logging.h>

namespace android::vus::platform {

// For base::SetLogger(). Any thread may log; a line is one write to stderr's stream. The time is
// the local one, of the zone that the process began in. errno stays as it is.
void writeLogLine(base::LogId id, base::LogSeverity severity, const char* tag, const char* file,
                  unsigned line, const char* message);

}  // namespace android::vus::platform
