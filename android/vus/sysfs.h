// SPDX-License-Identifier: Apache-2.0

// Reading sysfs: entries of the USB devices directory, directories, and for how long a read may
// wait.
//
// The kernel answers most attributes at once. Some attributes of a device it reads under that
// device's lock, which it holds while a driver waits for the device: 5 s for each request that is
// not answered, minutes for some devices. Whoever reads the attributes of all devices waits for
// each of them in turn, unless the waiting is ended: that is what Patience does.
//
// Everything here belongs to the thread that made it.

#pragma once

#include <dirent.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <string_view>

#include <android-base/unique_fd.h>

#include "android/vus/insistently.h"
#include "android/vus/usbdevice.h"

namespace android::vus::usb {

// Formats the path of `name` below an entry of the USB devices directory, cut to the buffer.
// Returns the length that the whole path takes.
int format_path(char (&path)[kSysfsValueSize], const char* entry, const char* name);
// Whether a path of that formatted length is whole in its buffer.
bool path_fits(int length);

// The number that a file with this beginning shows: at most eleven characters are looked at.
inline constexpr size_t kNumberLength = 11;
int32_t number_of(const char (&text)[kNumberLength + 1], int32_t base);
// Makes one line of the `count` bytes that a read put into `buf`, which may have been a failed one
// or one that left no room for the terminator: these give an empty text.
void make_line(char* buf, int32_t len, ssize_t count);

// Copies `text` as far as it fits with its terminator and zeroes the rest of the field. Returns
// whether all of it fitted.
template <size_t kSize>
bool copy_text(char (&field)[kSize], std::string_view text) {
    const size_t length = std::min(text.size(), kSize - 1);
    memcpy(field, text.data(), length);
    memset(field + length, 0, kSize - length);
    return length == text.size();
}

// Stores what follows the last "/" of the link at `path` (below `directory`, if that is open).
void read_link_name(int directory, const char* path, char (&name)[kSysfsNameSize]);

// How long the calling thread waits for locked attributes, from construction on: for `limit` in
// all, and then for a few milliseconds with each device that still keeps them locked.
//
// A timer signals the thread, and a read that waits in the kernel ends with EINTR. The signal is
// blocked but for the time of a Window, so that nothing else that the thread does is disturbed. The
// timer is made when a window opens for the first time, and ends with this object. If it cannot be
// had, reads wait for as long as the kernel makes them.
class Patience {
  public:
    explicit Patience(std::chrono::milliseconds limit);
    ~Patience();
    Patience(const Patience&) = delete;
    Patience& operator=(const Patience&) = delete;

    class Window {
      public:
        explicit Window(Patience* patience);  // null: nothing is ended
        ~Window();
        Window(const Window&) = delete;
        Window& operator=(const Window&) = delete;

      private:
        const bool open_;
    };

  private:
    void start_timer();

    const std::chrono::steady_clock::time_point end_;
    bool started_ = false;
    bool armed_ = false;
    bool was_blocked_ = false;
    timer_t timer_ = {};
};

// Opens `path` below `directory`, trying again for want of means.
base::unique_fd open_insistently(int directory, const char* path, int flags);
// Writes one character in the same way. Returns whether it was written; errno tells why not.
bool write_insistently(const base::unique_fd& fd, char value);

// Whether reading an attribute takes the device's lock.
enum class Lock { kNone, kDevice };

// One entry of the USB devices directory, opened once for all of its attributes: reading them below
// a descriptor spares the kernel the walk through the whole path, links included, for each of them.
//
// Values and messages are those of read_sysfs_file_int() and read_sysfs_file_string(), which also
// do the work where the entry cannot be opened as a directory.
//
// While it lives, its reads of locked attributes can be ended by the patience that it was given.
// One that was ended is a read that failed with EINTR, and so are all further ones of this entry:
// the device is waited for once.
class SysfsEntry {
  public:
    explicit SysfsEntry(const char* entry, Patience* patience = nullptr);

    int32_t read_int(const char* attribute, int32_t base, Lock lock = Lock::kNone);
    void read_string(const char* attribute, char* buf, int32_t len, Lock lock = Lock::kNone);
    // The length that the path of `name` below this entry takes.
    int path_length(const char* name) const;
    // The last component of the "driver" link; left alone if there is no such link.
    void read_driver(char (&driver)[kSysfsNameSize]) const;

    // Whether everything was read that there is: an attribute that the kernel does not have counts
    // as read.
    bool is_complete() const { return complete_; }
    // Whether something was not for want of descriptors or memory.
    bool lacked_means() const { return lacked_means_; }

  private:
    void note_failure();
    ssize_t read_attribute(const char* attribute, Lock lock, char* buf, size_t len);
    template <typename Call>
    auto until_done(Lock lock, const Call& call);

    const char* entry_;
    const Patience::Window window_;
    int length_;  // of the entry's own path, with a '/' at its end
    base::unique_fd directory_;
    bool complete_ = true;
    bool lacked_means_ = false;
    bool given_up_ = false;
};

// The entries of a directory, in the order in which the kernel lists them.
//
// Read by the system call into a buffer of its own: a decision reads some hundred small
// directories, and opendir() would allocate and free 32 KiB for each.
class DirectoryReader {
  public:
    // A directory that cannot be opened has no entries; errno tells why.
    explicit DirectoryReader(const char* path);
    // The same of a path below an open directory.
    DirectoryReader(int directory, const char* path);

    bool ok() const { return fd_.ok(); }
    int fd() const { return fd_.get(); }
    // The next entry, "." and ".." included, valid until the next call; null at the end.
    const dirent64* next();
    // Whether the end was that of the listing's failure.
    bool failed() const { return failed_; }
    // Whether the entry itself is a directory. A link to one is not.
    bool is_directory(const dirent64& entry) const;

  private:
    base::unique_fd fd_;
    bool failed_ = false;
    long filled_ = 0;
    long position_ = 0;
    alignas(dirent64) char buffer_[kSysfsValueSize];
};

}  // namespace android::vus::usb
