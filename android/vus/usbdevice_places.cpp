// SPDX-License-Identifier: Apache-2.0

#include "android/vus/usbdevice_places.h"

#include <fcntl.h>

#include <algorithm>

#include "android/vus/sysfs.h"

namespace android::vus::usb {

std::optional<std::string> way_below_bus(std::string_view interface) {
    const size_t end = interface.find(':');
    const size_t port = interface.find('-');
    if (end == std::string_view::npos || port == std::string_view::npos || port > end) return {};
    std::string way;
    const bool is_root_hub = interface.substr(port, end - port) == "-0";
    for (size_t at = port; !is_root_hub && at < end;) {
        at = std::min(interface.find('.', at + 1), end);
        way.append(interface.substr(0, at)).append("/");
    }
    return way.append(interface);
}

bool Place::look(struct stat* status) const {
    return fstatat(directory, path.c_str(), status, 0) == 0;
}

bool Place::look_at(const char* entry, struct stat* status) const {
    const std::string below = path + "/" + entry;
    return fstatat(directory, below.c_str(), status, AT_SYMLINK_NOFOLLOW) == 0;
}

std::optional<Place> Places::by_bus(const char* interface) {
    std::optional<std::string> way = way_below_bus(interface);
    if (!way) return {};
    const int bus = bus_directory(std::string_view(interface).substr(0, way->find('-')));
    if (bus < 0) return {};
    return Place{bus, std::move(*way)};
}

int Places::bus_directory(std::string_view number) {
    for (const auto& [known, directory] : buses_) {
        if (known == number) return directory.get();
    }
    const std::string name = "usb" + std::string(number);
    base::unique_fd directory(open_insistently(devices_, name.c_str(), O_PATH | O_DIRECTORY));
    // A bus that cannot be opened is not tried for each of its interfaces.
    return buses_.emplace_back(number, std::move(directory)).second.get();
}

}  // namespace android::vus::usb
