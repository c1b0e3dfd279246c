// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/closings.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "android/vus/insistently.h"

namespace android::vus::hotplug {

namespace {

constexpr off_t kMostBytes = 64 << 10;
constexpr size_t kLongestLine = 64;

// A regular file of our own, and no longer than we write any.
bool is_ours(const struct stat& file) {
    return S_ISREG(file.st_mode) && file.st_uid == geteuid() && file.st_size <= kMostBytes;
}

// Nothing of what is not ours. -1, with errno telling why, if that cannot be told.
int try_read(const std::string& file, std::string* text) {
    const base::unique_fd fd(open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd.ok()) return errno == ENOENT || errno == ENOTDIR || errno == ELOOP ? 0 : -1;
    struct stat status;
    if (fstat(fd.get(), &status) != 0) return -1;
    return !is_ours(status) || base::ReadFdToString(fd, text) ? 0 : -1;
}

// By another name first, and that one is made anew: nobody's link is followed.
int try_replace(const std::string& file, const std::string& text) {
    const std::string next = file + ".new";
    unlink(next.c_str());
    const base::unique_fd fd(
            open(next.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd.ok()) return -1;
    if (base::WriteStringToFd(text, fd) && rename(next.c_str(), file.c_str()) == 0) return 0;
    unlink(next.c_str());
    return -1;
}

std::string key_of(const std::string& line) {
    return line.substr(line.find(' ') + 1);
}

}  // namespace

Closings::Closings(std::string file) : file_(std::move(file)) {
    // Where nothing else makes it. Not its parents: there may be no such place at all.
    mkdir(base::Dirname(file_).c_str(), 0700);
    const MutexLock lock(mutex_);
    read();
}

std::string Closings::line_of(const Subject& device) {
    return device.is_usb() ? device.name + " " + device.key() : device.name;
}

// Once; as often as it takes.
void Closings::read() {
    std::string text;
    if (is_read_ || insistently([&] { return try_read(file_, &text); }) != 0) return;
    is_read_ = true;
    for (const std::string& line : base::Split(text, "\n")) {
        if (line.empty() || line.size() > kLongestLine || closed_.size() == kMost) continue;
        if (closed_.insert(line).second) earlier_.insert(line);
    }
}

void Closings::add(const Subject& device) {
    const std::string line = line_of(device);
    const MutexLock lock(mutex_);
    read();
    if (line.size() > kLongestLine || closed_.size() == kMost) return;
    if (closed_.insert(line).second) write();
}

void Closings::remove(const Subject& device) {
    const MutexLock lock(mutex_);
    read();
    earlier_.erase(line_of(device));
    if (closed_.erase(line_of(device)) != 0) write();
}

bool Closings::take_earlier(const Subject& device) {
    const MutexLock lock(mutex_);
    read();
    return earlier_.erase(line_of(device)) != 0;
}

void Closings::keep_only(const std::set<std::string>& keys) {
    const MutexLock lock(mutex_);
    read();
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

// What an earlier reporter has left is not lost for what it is not known.
void Closings::write() {
    if (!is_read_) return;
    std::string text;
    for (const std::string& line : closed_) text += line + "\n";
    insistently([&] { return try_replace(file_, text); });
}

}  // namespace android::vus::hotplug
