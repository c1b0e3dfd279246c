// SPDX-License-Identifier: Apache-2.0

// Where interfaces are, for those who ask about many of them often. Their entries in the USB
// devices directory are links, and to follow one the kernel builds and walks a path from the root
// of sysfs; from its bus's directory an interface is a few names away, which are parts of its own.
// Not for users of UsbDevice.
//
// Places belongs to its thread, and keeps the directories of the buses open while it is there. What
// a Place holds is valid as long as its Places and the name are.

#pragma once

#include <stdint.h>
#include <sys/stat.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <android-base/unique_fd.h>

namespace android::vus::usb {

// The way to an interface from the directory of its bus: 1-2/1-2.4/1-2.4:1.0 for 1-2.4:1.0, and
// 1-0:1.0 for that of a root hub. Nothing for what is not named like an interface.
std::optional<std::string> way_below_bus(std::string_view interface);

struct Place {
    int directory;     // an open one
    std::string path;  // below it

    // Of the interface's directory, or of an entry in it that may be a link. False with errno.
    bool look(struct stat* status) const;
    bool look_at(const char* entry, struct stat* status) const;
};

class Places {
  public:
    // `devices` is the USB devices directory, which stays its owner's.
    explicit Places(int devices) : devices_(devices) {}

    // By its link, which is always right.
    Place by_name(const char* interface) const { return {devices_, interface}; }
    // By its bus. Not checked: the kernel puts interfaces there, others may not. Nothing if there
    // is no such bus, or no descriptor to be had for it.
    std::optional<Place> by_bus(const char* interface);

  private:
    int bus_directory(std::string_view number);

    const int devices_;
    std::vector<std::pair<std::string, base::unique_fd>> buses_;  // by their numbers
};

}  // namespace android::vus::usb
