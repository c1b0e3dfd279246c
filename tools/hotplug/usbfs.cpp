// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/usbfs.h"

#include <fcntl.h>
#include <linux/usb/ch9.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>

#include "android/vus/paths.h"
#include "tools/hotplug/device_node.h"
#include "tools/hotplug/hid_descriptor.h"
#include "tools/hotplug/sysfs_paths.h"

namespace android::vus::hotplug {

namespace {

constexpr uint16_t kReportDescriptor = 0x22 << 8;
constexpr uint32_t kTimeoutMs = 1000;

}  // namespace

// The device's number is its node's name: another device at the same port has another node.
std::optional<std::vector<uint8_t>> read_report_descriptor(const Subject& device,
                                                           int32_t interface_number) {
    const std::string node = base::StringPrintf("%s/%03d/%03d", kUsbNodesDir, device.number / 1000,
                                                device.number % 1000);
    const base::unique_fd fd =
            open_node(node, O_RDWR, std::string(kUsbDevicesDir) + "/" + device.name);
    if (!fd.ok()) return std::nullopt;
    std::vector<uint8_t> descriptor(kMaxReportDescriptor);
    usbdevfs_ctrltransfer request = {};
    request.bRequestType = USB_DIR_IN | USB_TYPE_STANDARD | USB_RECIP_INTERFACE;
    request.bRequest = USB_REQ_GET_DESCRIPTOR;
    request.wValue = kReportDescriptor;
    request.wIndex = static_cast<uint16_t>(interface_number);
    request.wLength = static_cast<uint16_t>(descriptor.size());
    request.timeout = kTimeoutMs;
    request.data = descriptor.data();
    // For as long as the node is open.
    unsigned claimed = static_cast<unsigned>(interface_number);
    if (ioctl(fd.get(), USBDEVFS_CLAIMINTERFACE, &claimed) != 0) return std::nullopt;
    const int length = ioctl(fd.get(), USBDEVFS_CONTROL, &request);
    if (length <= 0) return std::nullopt;
    descriptor.resize(static_cast<size_t>(length));
    return descriptor;
}

}  // namespace android::vus::hotplug
