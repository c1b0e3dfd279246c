// SPDX-License-Identifier: Apache-2.0

// The sysfs primitives.

#include "android/vus/usbdevice.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

#include <android-base/logging.h>
#include <android-base/unique_fd.h>

#include "android/vus/sysfs.h"

namespace android::vus {

using base::unique_fd;

bool UsbDevice::verbose_log = false;

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
        // Two blanks; kept: oddity 19.
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
    char text[usb::kNumberLength + 1] = {};
    if (!fd.ok() || read(fd.get(), text, usb::kNumberLength) < 0) {
        perror(path);
        return 0;
    }
    return usb::number_of(text, base);
}

void UsbDevice::read_sysfs_file_string(const char* entry, const char* attribute, char* buf,
                                       int32_t len) {
    char path[kSysfsValueSize];
    unique_fd fd;
    if (usb::path_fits(usb::format_path(path, entry, attribute))) {
        fd.reset(open(path, O_RDONLY | O_CLOEXEC));
    }
    const bool readable = fd.ok() && len > 0;
    usb::make_line(buf, len, readable ? read(fd.get(), buf, static_cast<size_t>(len)) : -1);
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
