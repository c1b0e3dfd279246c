// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/closings.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>

namespace android::vus::hotplug {

namespace {

constexpr off_t kMostBytes = 64 << 10;
constexpr size_t kLongestLine = 64;

// A regular file of our own, and no longer than we write any.
bool is_ours(int fd) {
    struct stat status;
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
           status.st_size <= kMostBytes;
}

std::string key_of(const std::string& line) {
    return line.substr(line.find(' ') + 1);
}

}  // namespace

Closings::Closings(std::string file) : file_(std::move(file)) {
    // Where nothing else makes it. Not its parents: there may be no such place at all.
    mkdir(base::Dirname(file_).c_str(), 0700);
    read();
}

std::string Closings::line_of(const Subject& device) {
    return device.is_usb() ? device.name + " " + device.key() : device.name;
}

void Closings::read() {
    const base::unique_fd fd(open(file_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    std::string text;
    if (!fd.ok() || !is_ours(fd.get()) || !base::ReadFdToString(fd, &text)) return;
    const MutexLock lock(mutex_);
    for (const std::string& line : base::Split(text, "\n")) {
        if (line.empty() || line.size() > kLongestLine || closed_.size() == kMost) continue;
        closed_.insert(line);
    }
    earlier_ = closed_;
}

void Closings::add(const Subject& device) {
    const std::string line = line_of(device);
    const MutexLock lock(mutex_);
    if (line.size() > kLongestLine || closed_.size() == kMost) return;
    if (closed_.insert(line).second) write();
}

void Closings::remove(const Subject& device) {
    const MutexLock lock(mutex_);
    earlier_.erase(line_of(device));
    if (closed_.erase(line_of(device)) != 0) write();
}

bool Closings::take_earlier(const Subject& device) {
    const MutexLock lock(mutex_);
    return earlier_.erase(line_of(device)) != 0;
}

void Closings::keep_only(const std::set<std::string>& keys) {
    const MutexLock lock(mutex_);
    const size_t before = closed_.size();
    for (auto line = earlier_.begin(); line != earlier_.end();) {
        if (keys.count(key_of(*line)) != 0) {
            ++line;
            continue;
        }
        closed_.erase(*line);
        line = earlier_.erase(line);
    }
    if (closed_.size() != before) write();
}

// By another name first, and that one is made anew: nobody's link is followed.
void Closings::write() {
    const std::string next = file_ + ".new";
    unlink(next.c_str());
    const base::unique_fd fd(
            open(next.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd.ok()) return;
    std::string text;
    for (const std::string& line : closed_) text += line + "\n";
    if (!base::WriteStringToFd(text, fd) || rename(next.c_str(), file_.c_str()) != 0) {
        unlink(next.c_str());
    }
}

}  // namespace android::vus::hotplug
