// SPDX-License-Identifier: Apache-2.0
//
// EventFile: lines appended to a file, which nothing that happens to the file can hold up.
//
// A thread of its own writes them, so that a full, slow or missing disk keeps nobody waiting; what
// cannot be written is lost, which is said once and, when the file can be written again, in it. The
// file is opened for each line, for they are few: it may be moved away, removed, or written by
// another, at any time. When a line would make it longer than its limit, it becomes FILE.1, in
// place of the one before, and a new one is begun. It is locked meanwhile, so two who write do not
// rotate it twice.
//
// Only a regular file is written, never what a symbolic link points to. A line is there as a whole
// or not at all, unless the machine stops: then the next line begins on a line of its own.
//
// Owns its thread. Thread-safe.

#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <string>
#include <thread>

#include "android/vus/mutex.h"

namespace android::vus::hotplug {

class EventFile {
  public:
    static constexpr off_t kLimit = 4 << 20;
    // That wait to be written.
    static constexpr size_t kMostLines = 1024;

    // `notice` gets a line when lines are lost; it does not wait.
    EventFile(std::string path, std::function<void(const std::string&)> notice,
              off_t limit = kLimit);
    // Waits until what was added is written, or lost.
    ~EventFile();
    EventFile(const EventFile&) = delete;
    EventFile& operator=(const EventFile&) = delete;

    // Returns at once. `line` has no line end.
    void add(std::string line);
    // Waits until everything is written, or lost; false if it was not within the time.
    bool flush(std::chrono::milliseconds limit);

  private:
    void work();
    void write(const std::string& line);
    // False, with errno telling why.
    bool append(const std::string& line) const;

    const std::string path_;
    const std::function<void(const std::string&)> notice_;
    const off_t limit_;
    // The thread's own.
    size_t lost_lines_ = 0;

    Mutex mutex_;
    std::condition_variable_any changed_;
    std::deque<std::string> lines_ GUARDED_BY(mutex_);  // the first is being written
    size_t overflowed_ GUARDED_BY(mutex_) = 0;          // lines for which there was no room
    bool ending_ GUARDED_BY(mutex_) = false;
    std::thread thread_;  // last: it uses the others
};

}  // namespace android::vus::hotplug
