// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/device_directory.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "android/vus/insistently.h"
#include "android/vus/paths.h"
#include "tools/hotplug/usb_entry.h"

namespace android::vus::hotplug {

namespace {

bool write_all(int fd, const std::string& text) {
    return insistently([&] { return TEMP_FAILURE_RETRY(write(fd, text.data(), text.size())); }) ==
           static_cast<ssize_t>(text.size());
}

}  // namespace

bool has_gone(int error) {
    return error == ENOENT || error == ENODEV || error == ENXIO;
}

bool write_attribute(const std::string& path, const std::string& text) {
    const base::unique_fd fd(insistently([&] { return open(path.c_str(), O_WRONLY | O_CLOEXEC); }));
    return fd.ok() && write_all(fd.get(), text);
}

DeviceDirectory::DeviceDirectory(Subject device)
      : device_(std::move(device)), fd_(insistently([this] {
            return open((std::string(kUsbDevicesDir) + "/" + device_.name).c_str(),
                        O_PATH | O_DIRECTORY | O_CLOEXEC);
        })) {}

bool DeviceDirectory::is_there() const {
    return fd_.ok() && device_.number != 0 && usb_number(fd_.get(), device_.name) == device_.number;
}

uint64_t DeviceDirectory::inode() const {
    struct stat status = {};
    return fstat(fd_.get(), &status) == 0 ? status.st_ino : 0;
}

bool DeviceDirectory::write(const std::string& name, char value) const {
    const base::unique_fd fd(
            insistently([&] { return openat(fd_.get(), name.c_str(), O_WRONLY | O_CLOEXEC); }));
    return fd.ok() && write_all(fd.get(), {value});
}

}  // namespace android::vus::hotplug
