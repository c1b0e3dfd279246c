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

bool write_attribute(const std::string& path, const std::string& text) {
    const base::unique_fd fd(insistently([&] { return open(path.c_str(), O_WRONLY | O_CLOEXEC); }));
    return fd.ok() && write_all(fd.get(), text);
}

bool write_attribute(const base::unique_fd& file, const std::string& text) {
    return write_all(file.get(), text);
}

DeviceDirectory::DeviceDirectory(Subject device)
      : device_(std::move(device)), fd_(insistently([this] {
            return open((std::string(kUsbDevicesDir) + "/" + device_.name).c_str(),
                        O_PATH | O_DIRECTORY | O_CLOEXEC);
        })) {
    if (!fd_.ok()) error_ = errno;
}

DeviceDirectory::Presence DeviceDirectory::presence() const {
    const auto failed = [](int error) {
        errno = error;
        return has_gone(error) ? Presence::kGone : Presence::kUnknown;
    };
    if (!fd_.ok()) return failed(error_);
    if (device_.number == 0) return Presence::kGone;
    const auto number = usb_number(fd_.get(), device_.name);
    if (!number) return failed(errno);
    return *number == device_.number ? Presence::kThere : Presence::kGone;
}

std::optional<uint64_t> DeviceDirectory::inode() const {
    struct stat status = {};
    const int result = insistently([&] { return fstat(fd_.get(), &status); });
    return result == 0 ? std::make_optional<uint64_t>(status.st_ino) : std::nullopt;
}

bool DeviceDirectory::write(const std::string& name, char value) const {
    const base::unique_fd fd(
            insistently([&] { return openat(fd_.get(), name.c_str(), O_WRONLY | O_CLOEXEC); }));
    return fd.ok() && write_all(fd.get(), {value});
}

}  // namespace android::vus::hotplug
