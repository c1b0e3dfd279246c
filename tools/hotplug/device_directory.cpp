// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/device_directory.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/strings.h>

#include "android/vus/insistently.h"
#include "android/vus/paths.h"

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

DeviceDirectory::DeviceDirectory(const Subject& device)
      : fd_(insistently([&] {
            return open((std::string(kUsbDevicesDir) + "/" + device.name).c_str(),
                        O_PATH | O_DIRECTORY | O_CLOEXEC);
        })) {
    if (device.number == 0 || read("busnum") * 1000 + read("devnum") != device.number) {
        fd_.reset();
    }
}

uint64_t DeviceDirectory::inode() const {
    struct stat status = {};
    return fstat(fd_.get(), &status) == 0 ? status.st_ino : 0;
}

int DeviceDirectory::read(const std::string& name) const {
    std::string text;
    insistently([&] {
        const base::unique_fd fd(openat(fd_.get(), name.c_str(), O_RDONLY | O_CLOEXEC));
        return fd.ok() && base::ReadFdToString(fd.get(), &text) ? 0 : -1;
    });
    int number = -1;
    (void)base::ParseInt(base::Trim(text), &number);
    return number;
}

bool DeviceDirectory::write(const std::string& name, char value) const {
    const base::unique_fd fd(
            insistently([&] { return openat(fd_.get(), name.c_str(), O_WRONLY | O_CLOEXEC); }));
    return fd.ok() && write_all(fd.get(), {value});
}

}  // namespace android::vus::hotplug
