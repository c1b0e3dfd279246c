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
    // Not ok() if the device has gone, or another one is there.
    explicit DeviceDirectory(const Subject& device);

    bool ok() const { return fd_.ok(); }
    // 0 if it cannot be had.
    uint64_t inode() const;
    // -1 if there is no such number.
    int read(const std::string& name) const;
    // False, with errno telling why.
    bool write(const std::string& name, char value) const;

  private:
    base::unique_fd fd_;
};

}  // namespace android::vus::hotplug
