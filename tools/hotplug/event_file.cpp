// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/event_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include <android-base/unique_fd.h>

namespace android::vus::hotplug {

namespace {

using base::unique_fd;

// Others that rotate the file meanwhile.
constexpr int kTries = 8;

// The file, locked; without one, errno tells why. A FIFO that nobody reads does not keep us.
unique_fd open_locked(const std::string& path) {
    constexpr int kFlags = O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
    unique_fd fd(TEMP_FAILURE_RETRY(open(path.c_str(), kFlags, 0600)));
    if (!fd.ok()) return fd;
    struct stat file = {};
    if (fstat(fd.get(), &file) != 0) return unique_fd();
    if (!S_ISREG(file.st_mode)) {
        errno = EINVAL;
        return unique_fd();
    }
    if (TEMP_FAILURE_RETRY(flock(fd.get(), LOCK_EX)) != 0) return unique_fd();
    return fd;
}

// Whether the path still leads to the open file.
bool is_at(const std::string& path, const struct stat& file) {
    struct stat there = {};
    return lstat(path.c_str(), &there) == 0 && there.st_ino == file.st_ino &&
           there.st_dev == file.st_dev;
}

bool ends_a_line(int fd, off_t size) {
    char last = '\n';
    return size == 0 || pread(fd, &last, 1, size - 1) != 1 || last == '\n';
}

// As a whole, or not at all.
bool write_whole(int fd, off_t size, const std::string& text) {
    const ssize_t written = TEMP_FAILURE_RETRY(write(fd, text.data(), text.size()));
    if (written == static_cast<ssize_t>(text.size())) return true;
    if (written < 0) return false;
    // What stays there if that fails, too, ends before the next line.
    if (ftruncate(fd, size) == 0) errno = ENOSPC;
    return false;
}

}  // namespace

EventFile::EventFile(std::string path, std::function<void(const std::string&)> notice, off_t limit)
      : path_(std::move(path)),
        notice_(std::move(notice)),
        limit_(limit),
        thread_(&EventFile::work, this) {}

EventFile::~EventFile() {
    {
        const MutexLock lock(mutex_);
        ending_ = true;
        changed_.notify_all();
    }
    thread_.join();
}

void EventFile::add(std::string line) {
    bool has_room = false;
    {
        const MutexLock lock(mutex_);
        has_room = lines_.size() < kMostLines;
        if (has_room) {
            lines_.push_back(std::move(line));
        } else if (overflowed_++ != 0) {
            return;
        }
    }
    // With the mutex free: who is told wants it.
    if (has_room) return changed_.notify_all();
    notice_("lines are lost, " + path_ + " takes no more");
}

bool EventFile::flush(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    const MutexLock lock(mutex_);
    while (!lines_.empty()) {
        if (changed_.wait_until(mutex_, deadline) == std::cv_status::timeout) {
            return lines_.empty();
        }
    }
    return true;
}

void EventFile::work() {
    const MutexLock lock(mutex_);
    while (true) {
        while (lines_.empty() && !ending_) changed_.wait(mutex_);
        if (lines_.empty()) return;
        const std::string line = lines_.front();
        const size_t overflowed = std::exchange(overflowed_, 0);
        mutex_.unlock();
        lost_lines_ += overflowed;
        write(line);
        mutex_.lock();
        lines_.pop_front();
        changed_.notify_all();
    }
}

void EventFile::write(const std::string& line) {
    const std::string lost = "{\"linesLost\":" + std::to_string(lost_lines_) + "}\n";
    if (append((lost_lines_ == 0 ? "" : lost) + line + "\n")) {
        lost_lines_ = 0;
        return;
    }
    const std::string why = errno == EINVAL ? "it is no regular file" : strerror(errno);
    if (lost_lines_++ == 0) notice_("lines are lost, cannot write " + path_ + ": " + why);
}

bool EventFile::append(const std::string& text) const {
    for (int tries = 0; tries < kTries; ++tries) {
        const unique_fd fd = open_locked(path_);
        struct stat file = {};
        if (!fd.ok() || fstat(fd.get(), &file) != 0) return false;
        if (!is_at(path_, file)) continue;
        const bool whole = ends_a_line(fd.get(), file.st_size);
        const off_t length = static_cast<off_t>(text.size()) + (whole ? 0 : 1);
        if (file.st_size == 0 || file.st_size + length <= limit_) {
            return write_whole(fd.get(), file.st_size, whole ? text : "\n" + text);
        }
        if (rename(path_.c_str(), (path_ + ".1").c_str()) != 0) return false;
    }
    errno = EBUSY;
    return false;
}

}  // namespace android::vus::hotplug
