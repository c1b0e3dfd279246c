// SPDX-License-Identifier: Apache-2.0

// Switching a device's interfaces off and on.

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <optional>

#include <android-base/unique_fd.h>

#include "android/vus/device_map.h"
#include "android/vus/gathered_log.h"
#include "android/vus/sysfs.h"
#include "android/vus/usbdevice_internal.h"

namespace android::vus {

using base::unique_fd;

namespace {

// One interface's directory, held open: what is read and written below it belongs to the interface
// that had the name when it was opened, even if another one has it by now.
class HeldInterface {
  public:
    explicit HeldInterface(const char* name) : name_(name) {
        char path[kSysfsValueSize];
        usb::format_path(path, name, "");
        directory_ = usb::open_insistently(AT_FDCWD, path, O_PATH | O_DIRECTORY);
    }

    // The id of the device that it belongs to, if its number can be read.
    std::optional<int32_t> device_id() const {
        uint32_t busnum = 0;
        uint32_t devnum = 0;
        char text[usb::kNumberLength + 1] = {};
        const unique_fd fd(open_below("../devnum", O_RDONLY));
        if (!fd.ok() || read(fd.get(), text, usb::kNumberLength) <= 0) return std::nullopt;
        if (usb::parse_number(text, &devnum) == text) return std::nullopt;
        if (usb::parse_number(name_, &busnum) == name_) return std::nullopt;
        return usb::device_id(busnum, devnum);
    }

    // By its path, if it is no directory that can be held: then that is what fails.
    unique_fd open_authorized(const char* path) const {
        if (directory_.ok()) return open_below("authorized", O_WRONLY);
        return usb::open_insistently(AT_FDCWD, path, O_WRONLY);
    }

  private:
    unique_fd open_below(const char* path, int flags) const {
        return directory_.ok() ? usb::open_insistently(directory_.get(), path, flags) : unique_fd();
    }

    const char* const name_;
    unique_fd directory_;
};

// The line is the same for an open and for a write that failed; kept: oddity 20.
bool report_authorization_failure(const char* text) {
    perror(text);
    LOG(ERROR) << "Error! Could not open file";
    return false;
}

// Writes one interface's "authorized" attribute. Returns whether the next one may follow.
//
// While a decision waited for the kernel, its device may have gone and another one come to its
// port, whose interfaces have the same names: that one was not judged.
bool write_authorized(int32_t id, const char* name, const char* path, char value) {
    const HeldInterface interface(name);
    const std::optional<int32_t> owner = interface.device_id();
    if (owner && *owner != id) {
        LOG(ERROR) << "update_status not written: " << name << " belongs to deviceId " << *owner
                   << " by now, not to " << id;
        return false;
    }
    const unique_fd fd = interface.open_authorized(path);
    if (!fd.ok()) return report_authorization_failure("Unable to open the file");
    if (!usb::write_insistently(fd, value)) {
        return report_authorization_failure("Error writing to sysfs file");
    }
    return true;
}

bool authorize_interface(int32_t id, const usbinterface_custom& record, char value) {
    LOG(INFO) << "Found deviceId in native list : " << id << "\t interface path" << record.name;
    if (record.name[0] == '\0') {
        LOG(INFO) << "update_status interface_name is NULL";
        return true;
    }
    char path[kSysfsValueSize];
    usb::format_path(path, record.name, "authorized");
    LOG(INFO) << "update_status path is :" << path;
    // The kernel may take as long to write it as a driver does to let go.
    writeGatheredLog();
    return write_authorized(id, record.name, path, value);
}

}  // namespace

void authorize(int32_t id, const DeviceRecords& records, int status) {
    LOG(INFO) << "update_status path with deviceId " << id << " status:" << status;
    const char value = status == 0 ? '0' : '1';
    for (const usbinterface_custom& record : records) {
        if (!authorize_interface(id, record, value)) return;
    }
}

}  // namespace android::vus
