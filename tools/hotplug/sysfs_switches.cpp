// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/sysfs_switches.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <vector>

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "android/vus/paths.h"
#include "tools/hotplug/sysfs_paths.h"
#include "tools/hotplug/usb_entry.h"

namespace android::vus::hotplug {

namespace {

constexpr char kAuthorized[] = "authorized";

// A device that has gone, or is on its way.
bool has_gone(int error) {
    return error == ENOENT || error == ENODEV || error == ENXIO;
}

bool write_all(int fd, const std::string& text) {
    return TEMP_FAILURE_RETRY(write(fd, text.data(), text.size())) ==
           static_cast<ssize_t>(text.size());
}

bool write_file(const std::string& path, const std::string& text) {
    const base::unique_fd fd(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    return fd.ok() && write_all(fd.get(), text);
}

}  // namespace

// A device's directory, held open: what is written by it never goes to another device that has
// come to the same port meanwhile.
class SysfsSwitches::Directory {
  public:
    // Not ok() if the device has gone, or another one is there.
    explicit Directory(const Subject& device)
          : fd_(open((std::string(kUsbDevicesDir) + "/" + device.name).c_str(),
                     O_PATH | O_DIRECTORY | O_CLOEXEC)) {
        if (device.number == 0 || read("busnum") * 1000 + read("devnum") != device.number) {
            fd_.reset();
        }
    }

    bool ok() const { return fd_.ok(); }
    int read(const std::string& name) const {
        const base::unique_fd fd(openat(fd_.get(), name.c_str(), O_RDONLY | O_CLOEXEC));
        std::string text;
        int number = -1;
        if (fd.ok() && base::ReadFdToString(fd.get(), &text)) {
            (void)base::ParseInt(base::Trim(text), &number);
        }
        return number;
    }
    // False, with errno telling why.
    bool write(const std::string& name, char value) const {
        const base::unique_fd fd(openat(fd_.get(), name.c_str(), O_WRONLY | O_CLOEXEC));
        return fd.ok() && write_all(fd.get(), {value});
    }

  private:
    base::unique_fd fd_;
};

void SysfsSwitches::close_interfaces(const Subject& device) {
    const Directory directory(device);
    const std::vector<UsbInterface> interfaces = read_interfaces(device.name);
    if (!directory.ok() || is_hub(interfaces)) return;
    for (const UsbInterface& interface : interfaces) {
        if (!interface.authorized) continue;
        const std::string path = interface.name + "/" + kAuthorized;
        if (!directory.write(path, '0')) complain(path);
    }
}

// All of them before any driver is looked for: one that serves two needs both.
void SysfsSwitches::open_interfaces(const Subject& device) {
    const Directory directory(device);
    if (!directory.ok()) return;
    std::vector<std::string> opened;
    for (const UsbInterface& interface : read_interfaces(device.name)) {
        if (interface.authorized) continue;
        if (directory.write(interface.name + "/" + kAuthorized, '1')) {
            opened.push_back(interface.name);
        } else {
            complain(interface.name + "/" + kAuthorized);
        }
    }
    for (const std::string& interface : opened) {
        if (!write_file(kUsbProbeFile, interface)) complain(kUsbProbeFile);
    }
}

void SysfsSwitches::close_device(const Subject& device) {
    set_device(device, '0');
}

void SysfsSwitches::open_device(const Subject& device) {
    set_device(device, '1');
}

void SysfsSwitches::set_device(const Subject& device, char value) {
    const Directory directory(device);
    if (directory.ok() && !directory.write(kAuthorized, value)) {
        complain(device.name + "/" + kAuthorized);
    }
}

void SysfsSwitches::hush_input(const std::string& input) {
    inhibit(input, '1');
}

void SysfsSwitches::unhush_input(const std::string& input) {
    inhibit(input, '0');
}

void SysfsSwitches::inhibit(const std::string& input, char value) {
    const std::string directory = std::string(kInputClassDir) + "/" + input;
    const std::string path = directory + "/inhibited";
    if (write_file(path, {value}) || access(directory.c_str(), F_OK) != 0) return;
    // Kernels before 5.11 have no such file.
    complain_("cannot switch " + path);
}

bool SysfsSwitches::unbind_hid(const std::string& hid_device) {
    const std::string path = std::string(kHidDevicesDir) + "/" + hid_device + "/driver/unbind";
    if (write_file(path, hid_device)) return true;
    complain(path);
    return false;
}

void SysfsSwitches::probe_hid(const std::string& hid_device) {
    if (!write_file(kHidProbeFile, hid_device)) complain(kHidProbeFile);
}

void SysfsSwitches::complain(const std::string& path) {
    const int error = errno;
    if (!has_gone(error)) complain_("cannot switch " + path + ": " + strerror(error));
}

}  // namespace android::vus::hotplug
