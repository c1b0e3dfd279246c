// SPDX-License-Identifier: Apache-2.0
//
// Closings: what the component keeps closed, in a file, so that a reporter that comes after one
// that was killed opens it by a "yes", as that one would have. What is not in it was closed by
// somebody else, and stays closed.
//
// The file is replaced as a whole by each change, in a directory that is root's own, and does not
// outlive the boot: names and numbers mean other devices then. A file that is none of ours is
// replaced as well; one that cannot be read now is left as it is until it can be. A file that
// cannot be read or written costs only that.
//
// Owns nothing that outlives a call. Thread-safe.

#pragma once

#include <set>
#include <string>

#include "android/vus/mutex.h"
#include "tools/hotplug/subject.h"

namespace android::vus::hotplug {

class Closings {
  public:
    static constexpr char kFile[] = "/run/vus_hotplug/closed";
    static constexpr size_t kMost = 1024;

    // Reads what an earlier reporter has left at `file`, in whose place the own is written.
    explicit Closings(std::string file);

    // To be called before it is closed, and after it has been opened or has gone: who is killed
    // in between has closed too little, not too much.
    void add(const Subject& device);
    void remove(const Subject& device);
    // Whether an earlier reporter closed it. The first call tells.
    bool take_earlier(const Subject& device);
    // What an earlier one closed and is not among those present (keys, see Subject) has gone.
    void keep_only(const std::set<std::string>& keys);

  private:
    // By port and number, or by an input device's name.
    static std::string line_of(const Subject& device);
    void read() REQUIRES(mutex_);
    void write() REQUIRES(mutex_);

    const std::string file_;
    Mutex mutex_;
    bool is_read_ GUARDED_BY(mutex_) = false;
    std::set<std::string> closed_ GUARDED_BY(mutex_);
    std::set<std::string> earlier_ GUARDED_BY(mutex_);  // of these, whose reporter is no more
};

}  // namespace android::vus::hotplug
