// SPDX-License-Identifier: Apache-2.0
//
// The diagnostic dump. Written straight to the caller's descriptor; a reader that goes away is no
// concern of ours.

#include <stdio.h>

#include <android-base/logging.h>
#include <utils/String16.h>
#include <utils/String8.h>
#include <utils/Vector.h>

#include "android/vus/usbdevice.h"
#include "android/vus/util.h"
#include "android/vus/vu_service.h"

namespace android::vus {

namespace {

constexpr char kNoClass[] = "<none>";

// What the dump prints of a device's classes: those that rules may name, and those they may not.
struct ClassNames {
    std::string listed;
    std::string restricted;
};

ClassNames inputClassNames(int32_t deviceClass) {
    ClassNames names{"", kNoClass};
    for (const int32_t source : Util::checkMultiClass(deviceClass)) {
        names.listed += Util::getClassName(source) + ";";
    }
    return names;
}

ClassNames usbClassNames(const std::vector<int32_t>& classes) {
    ClassNames names;
    for (const int32_t code : classes) {
        const std::string name = Util::getClassName(code);
        LOG(INFO) << "dumpPrint--" << name;
        std::string& text = Util::validateRestrictedClass(code) ? names.restricted : names.listed;
        if (text.find(name) == std::string::npos) text += name + ";";
    }
    // A device without interfaces prints no class name at all (kept: oddity 9).
    if (!names.restricted.empty() && names.listed.empty()) {
        LOG(INFO) << "interfaceClassListStr is null";
        names.listed = kNoClass;
    }
    if (names.restricted.empty()) {
        LOG(INFO) << "restrictedClassList is null";
        names.restricted = kNoClass;
    }
    return names;
}

void logDevice(const DeviceInfo& info) {
    LOG(INFO) << "Dump DeviceInfo:= { DeviceId:" << info.deviceId
              << ", DeviceName: " << info.deviceName
              << ", ClassName: " << Util::getClassName(info.deviceClass) << "[ " << info.deviceClass
              << "] , VendorId: " << info.vendorId << ", ProductId: " << info.productId << " }";
}

void dumpOnRequest(int fd, const String16& argument) {
    LOG(INFO) << "args[0] is" << String8(argument).string();
    if (argument != String16("test")) return;
    dprintf(fd, "USB Test \n");
    UsbDevice::dump_print_test(fd);
}

}  // namespace

status_t VUsbService::dump(int fd, const Vector<String16>& args) {
    if (!args.isEmpty()) {
        dumpOnRequest(fd, args[0]);
        return OK;
    }
    dprintf(fd, "USB DEVICE INFO ");
    const DeviceLists lists = copyDeviceLists();
    LOG(INFO) << "mInputDeviceInfoList size " << lists.input.size() << "mUsbDeviceInfoList size "
              << lists.usb.size();
    for (const DeviceInfo& info : lists.input) dumpPrint(fd, info);
    for (const DeviceInfo& info : lists.usb) dumpPrint(fd, info);
    return OK;
}

void VUsbService::dumpPrint(int fd, DeviceInfo info) {
    logDevice(info);
    const ClassNames names = info.deviceType != 0 ? inputClassNames(info.deviceClass)
                                                  : usbClassNames(info.interfaceClassList);
    LOG(INFO) << "interfaceClassListStr " << names.listed;
    dprintf(fd, "\nDevice name : %s", info.deviceName.c_str());
    dprintf(fd, "\n   Device type(1=HID/0=Non-HID) : %d", info.deviceType);
    dprintf(fd, "\n   DeviceID : %u", static_cast<uint32_t>(info.deviceId));
    dprintf(fd, "\n   Device class name : %s", names.listed.c_str());
    dprintf(fd, "\n   Restricted class name : %s", names.restricted.c_str());
    dprintf(fd, "\n   Device Vendor Id : %d", info.vendorId);
    dprintf(fd, "\n   Device Product Id : %d", info.productId);
    dprintf(fd, "\n   Device status(1-enabled/0-disabled): %d", info.status);
    dprintf(fd, "\n   Reason : %s\n", info.reason.c_str());
}

}  // namespace android::vus
