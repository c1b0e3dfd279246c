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
// devices that are no terminals, do not wait for a reader, and what they do not take is not
// counted. Nobody else's descriptors change: a pipe or a terminal is opened once more for this
// process alone.
//
// What one piece of work says in many lines can be gathered, and goes out in a few writes.

#pragma once

#include <cstdio>

namespace android::vus::platform {

// Makes stderr such a stream, and stdout where it needs it. To be called before there are threads,
// and before the first line is written. What cannot be had (memory) leaves a stream as it is.
void unblockStandardStreams();

// While there is one on a thread, what the thread writes to an unblocked stderr is gathered: it is
// written when there is a page of it, and when the outermost one goes. Lines stay in their order
// within a thread; each keeps the time that it was logged at. Not gathered is what goes to a device
// or a datagram socket, where each write is a record of its own, and nor what more threads say at
// once than a binder pool has.
class GatheredOutput {
  public:
    GatheredOutput();
    ~GatheredOutput();
    GatheredOutput(const GatheredOutput&) = delete;
    GatheredOutput& operator=(const GatheredOutput&) = delete;
};

// Writes what the calling thread has gathered: before it does what may never return.
void writeGatheredOutput();

// Writes what all threads have gathered, and lets none gather again: the process is about to end.
// May be called by a signal's handler wherever standard error may be written to.
void stopGatheringOutput();

// A stream that writes to `fd` (a pipe, a terminal or a socket) without waiting. A pipe or a
// terminal is opened anew under the same number where that is possible. Null if it cannot be made.
// Closing the stream leaves `fd` open.
FILE* openUnblocked(int fd);

}  // namespace android::vus::platform
