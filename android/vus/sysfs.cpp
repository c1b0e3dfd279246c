// SPDX-License-Identifier: Apache-2.0

#include "android/vus/sysfs.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <thread>

#include <android-base/logging.h>

#include "android/vus/gathered_log.h"
#include "android/vus/paths.h"

// The C library of some platforms has the field, and no name for it.
#ifndef sigev_notify_thread_id
#define sigev_notify_thread_id _sigev_un._tid
#endif

namespace android::vus::usb {

using base::unique_fd;

namespace {

constexpr std::chrono::milliseconds kTick(2);
// The second one ends a read: it has then waited for a whole tick. A device that merely answers
// somebody else when the first one comes is not given up.
constexpr int kInterruptionsToGiveUp = 2;

// Far from the low numbers that C libraries and unwinders keep for themselves.
int interruption() {
    return SIGRTMAX - 1;
}

sigset_t interruption_alone() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, interruption());
    return set;
}

// Without SA_RESTART: that the call ends is all that the signal is for.
void install_handler() {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigemptyset(&action.sa_mask);
    sigaction(interruption(), &action, nullptr);
}

timespec timespec_of(std::chrono::nanoseconds time) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    return {seconds.count(), static_cast<long>((time - seconds).count())};
}

}  // namespace

int format_path(char (&path)[kSysfsValueSize], const char* entry, const char* name) {
    return snprintf(path, sizeof(path), "%s/%s/%s", kUsbDevicesDir, entry, name);
}

bool path_fits(int length) {
    return length > 0 && length < kSysfsValueSize;
}

int32_t number_of(const char (&text)[kNumberLength + 1], int32_t base) {
    return static_cast<int32_t>(strtoul(text, nullptr, base));
}

void make_line(char* buf, int32_t len, ssize_t count) {
    if (len <= 0) return;
    ssize_t end = count < len ? std::max<ssize_t>(count, 0) : 0;
    while (end > 0 && buf[end - 1] == '\n') --end;
    buf[end] = '\0';
    std::replace(buf, buf + end, '\n', ' ');
}

void read_link_name(int directory, const char* path, char (&name)[kSysfsNameSize]) {
    char target[kSysfsValueSize];
    const ssize_t length = readlinkat(directory, path, target, sizeof(target));
    // A target that fills the buffer up to its last byte or beyond may have been cut.
    if (length <= 0 || length > kSysfsValueSize - 2) return;
    const std::string_view text(target, static_cast<size_t>(length));
    const size_t slash = text.rfind('/');
    if (slash != std::string_view::npos) copy_text(name, text.substr(slash + 1));
}

unique_fd open_insistently(int directory, const char* path, int flags) {
    return unique_fd(insistently([&] { return openat(directory, path, flags | O_CLOEXEC); }));
}

bool write_insistently(const unique_fd& fd, char value) {
    return insistently([&] { return write(fd.get(), &value, 1); }) == 1;
}

Patience::Patience(std::chrono::milliseconds limit)
      : end_(std::chrono::steady_clock::now() + limit) {}

Patience::~Patience() {
    if (!started_) return;
    // What is still pending is taken when the signal is let in, and disturbs nothing any more.
    if (armed_) timer_delete(timer_);
    if (was_blocked_) return;
    const sigset_t set = interruption_alone();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

void Patience::start_timer() {
    static const bool installed = (install_handler(), true);
    static_cast<void>(installed);
    started_ = true;
    const sigset_t set = interruption_alone();
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &set, &before);
    was_blocked_ = sigismember(&before, interruption()) == 1;

    sigevent event = {};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = interruption();
    event.sigev_notify_thread_id = static_cast<pid_t>(syscall(SYS_gettid));
    armed_ = timer_create(CLOCK_MONOTONIC, &event, &timer_) == 0;
    if (!armed_) {
        PLOG(WARNING) << "No timer to end reads of sysfs";
        writeGatheredLog();  // they may take long now
        return;
    }
    const itimerspec times = {timespec_of(kTick), timespec_of(end_.time_since_epoch())};
    timer_settime(timer_, TIMER_ABSTIME, &times, nullptr);
}

Patience::Window::Window(Patience* patience) : open_(patience != nullptr) {
    if (!open_) return;
    if (!patience->started_) patience->start_timer();
    const sigset_t set = interruption_alone();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

Patience::Window::~Window() {
    if (!open_) return;
    const sigset_t set = interruption_alone();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

SysfsEntry::SysfsEntry(const char* entry, Patience* patience) : entry_(entry), window_(patience) {
    char path[kSysfsValueSize];
    length_ = format_path(path, entry, "");
    if (path_fits(length_)) {
        directory_.reset(open(path, O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
    if (!directory_.ok()) note_failure();
}

void SysfsEntry::note_failure() {
    if (errno != ENOENT || !directory_.ok()) complete_ = false;
    if (errno == EINTR) given_up_ = true;
    if (is_want_of_means(errno)) lacked_means_ = true;
}

// Repeats a call that a signal has ended: one that does not wait for the device always, one that
// does until it is given up. No attribute is lost because another one was slow.
template <typename Call>
auto SysfsEntry::until_done(Lock lock, const Call& call) {
    for (int interruptions = 0;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR) return result;
        if (lock == Lock::kDevice && ++interruptions >= kInterruptionsToGiveUp) return result;
    }
}

// Returns the count of bytes, or -1 with errno telling why.
ssize_t SysfsEntry::read_attribute(const char* attribute, Lock lock, char* buf, size_t len) {
    if (lock == Lock::kDevice && given_up_) {
        errno = EINTR;
        return -1;
    }
    const unique_fd fd(until_done(lock, [&] {
        return openat(directory_.get(), attribute, O_RDONLY | O_CLOEXEC);
    }));
    const ssize_t count =
            fd.ok() ? until_done(lock, [&] { return read(fd.get(), buf, len); }) : ssize_t{-1};
    if (count < 0) note_failure();
    return count;
}

int32_t SysfsEntry::read_int(const char* attribute, int32_t base, Lock lock) {
    if (!directory_.ok()) return UsbDevice::read_sysfs_file_int(entry_, attribute, base);
    char text[kNumberLength + 1] = {};
    if (read_attribute(attribute, lock, text, kNumberLength) < 0) {
        const int error = errno;
        char path[kSysfsValueSize];
        format_path(path, entry_, attribute);
        errno = error;
        perror(path);
        return 0;
    }
    return number_of(text, base);
}

void SysfsEntry::read_string(const char* attribute, char* buf, int32_t len, Lock lock) {
    if (!directory_.ok()) return UsbDevice::read_sysfs_file_string(entry_, attribute, buf, len);
    make_line(buf, len, read_attribute(attribute, lock, buf, static_cast<size_t>(len)));
}

int SysfsEntry::path_length(const char* name) const {
    return length_ + static_cast<int>(strlen(name));
}

void SysfsEntry::read_driver(char (&driver)[kSysfsNameSize]) const {
    if (directory_.ok()) return read_link_name(directory_.get(), "driver", driver);
    char path[kSysfsValueSize];
    format_path(path, entry_, "driver");
    read_link_name(AT_FDCWD, path, driver);
}

DirectoryReader::DirectoryReader(const char* path) : DirectoryReader(AT_FDCWD, path) {}

DirectoryReader::DirectoryReader(int directory, const char* path)
      : fd_(openat(directory, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

const dirent64* DirectoryReader::next() {
    if (position_ == filled_) {
        position_ = 0;
        filled_ = fd_.ok() ? syscall(SYS_getdents64, fd_.get(), buffer_, sizeof(buffer_)) : 0;
        failed_ = filled_ < 0;
        if (filled_ <= 0) {
            filled_ = 0;
            return nullptr;
        }
    }
    const auto* entry = reinterpret_cast<const dirent64*>(buffer_ + position_);
    position_ += entry->d_reclen;
    return entry;
}

bool DirectoryReader::is_directory(const dirent64& entry) const {
    if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
    struct stat status;
    return fstatat(fd_.get(), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(status.st_mode);
}

}  // namespace android::vus::usb
