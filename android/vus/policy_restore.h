// SPDX-License-Identifier: Apache-2.0

// Puts a text over a rejected policy, and over nothing else.
//
// Writers do not know of the daemon. One may have the policy open, or open it at any moment, and
// what it closes has to be judged, not overwritten. So the file is compared with what was rejected
// while a lease of the kernel says that nobody else has it open; an opening that comes meanwhile
// waits until the text is written. A lease is for the owner of the file or CAP_LEASE, and not every
// file system has them. Without one, and beside somebody who has the file open for reading, the
// comparison is repeated as late as can be, and a writer who comes within the microseconds after it
// is overwritten.
//
// No log and no lock; one restore at a time.

#pragma once

#include <stddef.h>

#include <functional>
#include <string>

namespace android::vus {

enum class Restored {
    kDone,          // its close will be heard
    kBeingWritten,  // a newer text: its close will be heard, or has been
    kChanged,       // another text, of which no close will be heard
    kImpossible,    // the file cannot be written, or is none
};

struct RestoreResult {
    Restored outcome;
    size_t closesBefore = 0;  // those that were waiting when the text was written
};

// Makes `text` the content of the file at `path`, if that still is `rejected`; a file that cannot
// be read has been rejected as empty. `closesWaiting` answers how many closes of the file have been
// heard of and not answered, all up to now.
RestoreResult restoreOver(const std::string& path, const std::string& rejected,
                          const std::string& text, const std::function<size_t()>& closesWaiting);

// Gives up the lease of a restore that has not ended and never will: the roll-back of a crash could
// not open the file. Async-signal-safe.
void endLease();

}  // namespace android::vus
