// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/usbfs.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/usb/ch9.h>
#include <linux/usbdevice_fs.h>
#include <stdlib.h>
#include <sys/ioctl.h>

#include <chrono>
#include <string>
#include <thread>

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>

#include "android/vus/paths.h"
#include "tools/hotplug/device_node.h"
#include "tools/hotplug/hid_descriptor.h"
#include "tools/hotplug/sysfs_paths.h"
#include "tools/hotplug/usb_entry.h"

namespace android::vus::hotplug {

namespace {

constexpr uint16_t kReportDescriptor = 0x22 << 8;
constexpr uint32_t kTimeoutMs = 1000;

// A hub's, as the kernel asks for it; a SuperSpeed one has its own. What a shorter answer than the
// least is, is no hub.
struct HubDescriptor {
    uint16_t type;
    uint16_t asked;
    int least;
};
constexpr HubDescriptor kHub = {0x29 << 8, 15, 9};
constexpr HubDescriptor kSuperSpeedHub = {0x2a << 8, 12, 12};
constexpr char kSuperSpeedProtocol[] = "03";
constexpr uint32_t kHubTimeoutMs = 5000;
constexpr int kHubTries = 3;

constexpr int kClaims = 10;
constexpr std::chrono::milliseconds kClaimRetry(50);

// The device's number is its node's name: another device at the same port has another node.
base::unique_fd node_of(const Subject& device) {
    const std::string node = base::StringPrintf("%s/%03d/%03d", kUsbNodesDir, device.number / 1000,
                                                device.number % 1000);
    return open_node(node, O_RDWR, std::string(kUsbDevicesDir) + "/" + device.name);
}

// Somebody else may be looking at it, too.
bool claim(int node, int32_t interface_number) {
    unsigned number = static_cast<unsigned>(interface_number);
    for (int tries = 0; tries < kClaims; ++tries) {
        if (ioctl(node, USBDEVFS_CLAIMINTERFACE, &number) == 0) return true;
        if (errno != EBUSY) return false;
        std::this_thread::sleep_for(kClaimRetry);
    }
    return false;
}

// Of the errors that a request may end with: the device's own refusals, and its silence.
bool is_the_devices(int error) {
    return error == EPIPE || error == ETIMEDOUT || error == EPROTO || error == EILSEQ ||
           error == EOVERFLOW;
}

// As the kernel keeps them: the device is not asked.
std::vector<uint8_t> descriptors_of(int node) {
    std::string text;
    base::ReadFdToString(node, &text);
    return {text.begin(), text.end()};
}

int32_t configuration_of(const std::string& device) {
    return static_cast<int32_t>(
            strtol(usb_attribute(device, "bConfigurationValue").c_str(), nullptr, 10));
}

}  // namespace

std::optional<bool> gives_hub_descriptor(const Subject& device) {
    const base::unique_fd fd = node_of(device);
    if (!fd.ok()) return std::nullopt;
    const bool is_fast = usb_attribute(device.name, "bDeviceProtocol") == kSuperSpeedProtocol;
    const HubDescriptor& hub = is_fast ? kSuperSpeedHub : kHub;
    std::vector<uint8_t> descriptor(hub.asked);
    usbdevfs_ctrltransfer request = {};
    request.bRequestType = USB_DIR_IN | USB_TYPE_CLASS | USB_RECIP_DEVICE;
    request.bRequest = USB_REQ_GET_DESCRIPTOR;
    request.wValue = hub.type;
    request.wLength = hub.asked;
    request.timeout = kHubTimeoutMs;
    request.data = descriptor.data();
    for (int tries = 0; tries < kHubTries; ++tries) {
        const int length = ioctl(fd.get(), USBDEVFS_CONTROL, &request);
        if (length >= hub.least) return true;
        if (length < 0 && !is_the_devices(errno)) return std::nullopt;
    }
    return false;
}

// It is asked as the kernel's HID driver will ask it, so that it cannot tell the two by that.
std::optional<std::vector<uint8_t>> read_report_descriptor(const Subject& device,
                                                           int32_t interface_number) {
    const base::unique_fd fd = node_of(device);
    if (!fd.ok()) return std::nullopt;
    const auto length = report_descriptor_length(descriptors_of(fd.get()),
                                                 configuration_of(device.name), interface_number);
    if (!length) return std::nullopt;
    // What the device does not fill is zeros for the kernel.
    std::vector<uint8_t> descriptor(*length);
    usbdevfs_ctrltransfer request = {};
    request.bRequestType = USB_DIR_IN | USB_TYPE_STANDARD | USB_RECIP_INTERFACE;
    request.bRequest = USB_REQ_GET_DESCRIPTOR;
    request.wValue = kReportDescriptor;
    request.wIndex = static_cast<uint16_t>(interface_number);
    request.wLength = static_cast<uint16_t>(descriptor.size());
    request.timeout = kTimeoutMs;
    request.data = descriptor.data();
    // For as long as the node is open.
    if (!claim(fd.get(), interface_number)) return std::nullopt;
    if (ioctl(fd.get(), USBDEVFS_CONTROL, &request) <= 0) return std::nullopt;
    return descriptor;
}

}  // namespace android::vus::hotplug
