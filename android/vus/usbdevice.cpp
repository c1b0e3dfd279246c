// SPDX-License-Identifier: Apache-2.0

// The sysfs primitives, and the entry reader that discovery builds on.

#include "android/vus/usbdevice.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

#include "android/vus/paths.h"
#include "android/vus/usbdevice_internal.h"

namespace android::vus {

using base::unique_fd;

bool UsbDevice::verbose_log = false;

namespace usb {
namespace {

// Eleven characters hold the longest number that the kernel writes.
constexpr size_t kNumberLength = 11;

// Reads the number that `fd` begins with. Returns false, with errno telling why, if `fd` is that of
// a failed open or the read fails. An empty file is 0.
bool read_number(const unique_fd& fd, int32_t base, int32_t* value) {
    char text[kNumberLength + 1] = {};
    if (!fd.ok() || read(fd.get(), text, kNumberLength) < 0) return false;
    *value = static_cast<int32_t>(strtoul(text, nullptr, base));
    return true;
}

// Reads a text as one line. A failed open or read, and a text without room for its terminator, give
// an empty one.
void read_line(const unique_fd& fd, char* buf, int32_t len) {
    if (len <= 0) return;
    const ssize_t count = fd.ok() ? read(fd.get(), buf, static_cast<size_t>(len)) : -1;
    ssize_t end = count < len ? std::max<ssize_t>(count, 0) : 0;
    while (end > 0 && buf[end - 1] == '\n') --end;
    buf[end] = '\0';
    std::replace(buf, buf + end, '\n', ' ');
}

}  // namespace

int format_path(char (&path)[kSysfsValueSize], const char* entry, const char* name) {
    return snprintf(path, sizeof(path), "%s/%s/%s", kUsbDevicesDir, entry, name);
}

bool path_fits(int length) {
    return length > 0 && length < kSysfsValueSize;
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

DirectoryReader::DirectoryReader(const char* path)
      : fd_(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

const dirent64* DirectoryReader::next() {
    if (position_ == filled_) {
        position_ = 0;
        filled_ = fd_.ok() ? syscall(SYS_getdents64, fd_.get(), buffer_, sizeof(buffer_)) : 0;
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

SysfsEntry::SysfsEntry(const char* entry) : entry_(entry) {
    char path[kSysfsValueSize];
    length_ = format_path(path, entry, "");
    if (path_fits(length_)) {
        directory_.reset(open(path, O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
}

int32_t SysfsEntry::read_int(const char* attribute, int32_t base) const {
    if (!directory_.ok()) return UsbDevice::read_sysfs_file_int(entry_, attribute, base);
    const unique_fd fd(openat(directory_.get(), attribute, O_RDONLY | O_CLOEXEC));
    int32_t value = 0;
    if (!read_number(fd, base, &value)) {
        const int error = errno;
        char path[kSysfsValueSize];
        format_path(path, entry_, attribute);
        errno = error;
        perror(path);
    }
    return value;
}

void SysfsEntry::read_string(const char* attribute, char* buf, int32_t len) const {
    if (!directory_.ok()) return UsbDevice::read_sysfs_file_string(entry_, attribute, buf, len);
    read_line(unique_fd(openat(directory_.get(), attribute, O_RDONLY | O_CLOEXEC)), buf, len);
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

}  // namespace usb

int32_t UsbDevice::read_sysfs_val(const char* path, char* buf, uint64_t len) {
    const unique_fd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd.ok()) {
        LOG(ERROR) << "Unable to open sysfs path for reading" << path;
        return 0;
    }
    // The last byte is the terminator's; a buffer without bytes has not even that.
    const ssize_t count = read(fd.get(), buf, len > 0 ? len - 1 : 0);
    if (count <= 0) {
        LOG(ERROR) << "Unable to read from sysfs path" << count;
        return 0;
    }
    buf[count] = '\0';
    return static_cast<int32_t>(count);
}

int32_t UsbDevice::write_sysfs_val(const char* path, const char* value, uint64_t len) {
    const unique_fd fd(open(path, O_WRONLY | O_CLOEXEC));
    if (!fd.ok()) {
        // The two blanks are on purpose: log readers look for the text as it has always been.
        LOG(ERROR) << "Unable to open  sysfs path for writing" << path;
        return 0;
    }
    const ssize_t count = write(fd.get(), value, len);
    if (count <= 0) {
        LOG(ERROR) << "Unable to write to sysfs path" << count;
        return 0;
    }
    return static_cast<int32_t>(count);
}

int32_t UsbDevice::read_sysfs_file_int(const char* entry, const char* attribute, int32_t base) {
    char path[kSysfsValueSize];
    usb::format_path(path, entry, attribute);
    const unique_fd fd(open(path, O_RDONLY | O_CLOEXEC));
    int32_t value = 0;
    if (!usb::read_number(fd, base, &value)) perror(path);
    return value;
}

void UsbDevice::read_sysfs_file_string(const char* entry, const char* attribute, char* buf,
                                       int32_t len) {
    char path[kSysfsValueSize];
    unique_fd fd;
    if (usb::path_fits(usb::format_path(path, entry, attribute))) {
        fd.reset(open(path, O_RDONLY | O_CLOEXEC));
    }
    usb::read_line(fd, buf, len);
}

std::vector<std::string> UsbDevice::split(std::string text, char delimiter) {
    std::vector<std::string> pieces;
    std::istringstream stream(text);
    for (std::string piece; std::getline(stream, piece, delimiter);) {
        piece.erase(std::remove(piece.begin(), piece.end(), '\n'), piece.end());
        pieces.push_back(piece);
    }
    return pieces;
}

}  // namespace android::vus
