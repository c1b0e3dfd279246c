// SPDX-License-Identifier: Apache-2.0
//
// A USB device's directory in sysfs, held open: what is read and written by it is never another
// device's that has come to the same port meanwhile. Owns the descriptor; not to be shared by
// threads.

#pragma once

#include <stdint.h>

#include <string>

#include <android-base/unique_fd.h>

#include "tools/hotplug/subject.h"

namespace android::vus::hotplug {

// Whether an error means a device that has gone, or is on its way.
bool has_gone(int error);

// Writes in one piece, as sysfs wants it. False, with errno telling why.
bool write_attribute(const std::string& path, const std::string& text);

class DeviceDirectory {
  public:
    explicit DeviceDirectory(Subject device);

    // Whether the device is still there, and no other one was when the directory was opened. What
    // was read before is then the device's, and all of it.
    bool is_there() const;
    int fd() const { return fd_.get(); }
    // 0 if it cannot be had.
    uint64_t inode() const;
    // False, with errno telling why.
    bool write(const std::string& name, char value) const;

  private:
    const Subject device_;
    base::unique_fd fd_;
};

}  // namespace android::vus::hotplug
