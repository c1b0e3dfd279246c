// SPDX-License-Identifier: Apache-2.0
//
// A USB device's directory in sysfs, held open: what is read and written by it is never another
// device's that has come to the same port meanwhile. Owns the descriptor; not to be shared by
// threads.

#pragma once

#include <stdint.h>

#include <optional>
#include <string>

#include <android-base/unique_fd.h>

#include "tools/hotplug/subject.h"

namespace android::vus::hotplug {

// Writes in one piece, as sysfs wants it. False, with errno telling why.
bool write_attribute(const std::string& path, const std::string& text);
bool write_attribute(const base::unique_fd& file, const std::string& text);

class DeviceDirectory {
  public:
    explicit DeviceDirectory(Subject device);

    // Whether the device is still there, and no other one was when the directory was opened. What
    // was read before is then the device's, and all of it.
    enum class Presence { kThere, kGone, kUnknown };
    Presence presence() const;
    bool is_there() const { return presence() == Presence::kThere; }
    int fd() const { return fd_.get(); }
    // Nothing if it cannot be had.
    std::optional<uint64_t> inode() const;
    // False, with errno telling why.
    bool write(const std::string& name, char value) const;

  private:
    const Subject device_;
    base::unique_fd fd_;
    int error_ = 0;  // why it could not be opened
};

}  // namespace android::vus::hotplug
