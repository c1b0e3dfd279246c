// SPDX-License-Identifier: Apache-2.0
//
// Standard output and standard error that never keep a service waiting.
//
// A pipe that nobody reads, a stopped terminal or a journal that hangs is full after a while, and
// then whoever writes to it waits. On Android the log is a service of its own that drops what it
// cannot take; on a Linux host the log is standard error, and an admission daemon that waits there
// refuses nothing any more. What does not fit is dropped here, and as soon as there is room again
// one line says how many lines were lost.
//
// It covers whatever is written through stdio (the logging library, perror, printf). Files, and
// devices that are no terminals, are left as they are: they do not wait for a reader. Nobody else's
// descriptors change: a pipe or a terminal is opened once more for this process alone.

#pragma once

#include <cstdio>

namespace android::vus::platform {

// Makes stdout and stderr such streams, where they need it. To be called before there are threads,
// and before the first line is written. What cannot be had (memory) leaves a stream as it is.
void unblockStandardStreams();

// A stream that writes to `fd` (a pipe, a terminal or a socket) without waiting. A pipe or a
// terminal is opened anew under the same number where that is possible. Null if it cannot be made.
// Closing the stream leaves `fd` open.
FILE* openUnblocked(int fd);

}  // namespace android::vus::platform
