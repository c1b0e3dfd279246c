// SPDX-License-Identifier: Apache-2.0
//
// Patience: for which devices an answer is due, and whose is overdue.
//
// Thread-safe. Times are the caller's, so that a test need not wait.

#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <vector>

#include "android/vus/mutex.h"
#include "tools/hotplug/subject.h"

namespace android::vus::hotplug {

class Patience {
  public:
    using Clock = std::chrono::steady_clock;

    explicit Patience(Clock::duration limit) : limit_(limit) {}

    // An answer is wanted from now on. While an earlier one still is, that one's limit holds, until
    // it is over.
    void begin(const Subject& device, Clock::time_point now);
    // One of the answers has come, or is wanted no more.
    void end(const Subject& device);

    // Those for which the limit is over, each told once a limit.
    std::vector<Subject> lost(Clock::time_point now);
    // When the next one's is; nothing if there is none.
    std::optional<Clock::time_point> next_deadline() const;

  private:
    struct Wait {
        Subject device;
        Clock::time_point deadline;
        int answers;  // that are wanted
        bool lost;
    };

    const Clock::duration limit_;
    mutable Mutex mutex_;
    std::map<std::string, Wait> waits_ GUARDED_BY(mutex_);  // by key
};

}  // namespace android::vus::hotplug
