// SPDX-License-Identifier: Apache-2.0
//
// The admission decision: may this device be used, and why.
//
// Class rules come before vendor rules, and the first rule that matches ends the search; the mode
// then says whether a match admits or refuses. A USB keyboard, mouse or the like is not judged as
// a USB device at all: the input subsystem reports it a second time, as an input device.

#include <algorithm>
#include <optional>

#include <android-base/logging.h>

#include "android/vus/usbdevice.h"
#include "android/vus/util.h"
#include "android/vus/vu_service.h"

namespace android::vus {

namespace {

constexpr int32_t kUsbClassHid = 3;
constexpr int kDeauthorize = 0;

struct Verdict {
    std::string mode;
    bool allowed;
    std::string reason;
};

// The reason why a rule matched, or nothing if none did.
using Match = std::optional<std::string>;

bool isUsbDevice(const DeviceInfo& info) {
    return info.deviceType == 0;
}

// True for a device with nothing but HID interfaces (or none at all) that is no vendor HID.
bool isLeftToInputSubsystem(const DeviceInfo& info) {
    const std::vector<int32_t>& classes = info.interfaceClassList;
    const auto other = std::find_if(classes.begin(), classes.end(),
                                    [](int32_t code) { return code != kUsbClassHid; });
    if (other != classes.end()) LOG(INFO) << "class is " << *other << "not HID";

    // In every case: a refusal and the device's record need the interfaces, too.
    UsbDevice::create_usb_device_map();
    if (other != classes.end() || UsbDevice::check_vendor_hid(info.deviceId)) return false;
    LOG(INFO) << "The HID device is controlled by Input Subsystem  ";
    return true;
}

constexpr char kClassMatch[] = "Match by ClassName, CLASS : ";

// The first interface whose class is neither listed nor restricted ends the search without a
// match, even if others are listed. Restricted classes neither admit nor refuse.
Match matchInterfaceClasses(const std::vector<int32_t>& classes) {
    bool matched = false;
    std::string reason = kClassMatch;
    for (const int32_t code : classes) {
        LOG(INFO) << code;
        if (Util::validateRestrictedClass(code)) continue;
        if (!Util::validateClass(code)) {
            LOG(INFO) << "interface class check false breaking";
            return std::nullopt;
        }
        matched = true;
        const std::string name = Util::getClassName(code);
        if (reason.find(name) == std::string::npos) reason += name + " ";
    }
    return matched ? Match(reason) : std::nullopt;
}

// Every source of a device must be listed: a keyboard that is also a mouse needs both.
Match matchInputSources(int32_t deviceClass) {
    const std::vector<int32_t> sources = Util::checkMultiClass(deviceClass);
    if (sources.empty()) return std::nullopt;
    std::string reason = kClassMatch;
    for (const int32_t source : sources) {
        LOG(INFO) << "HID multiClass check";
        if (!Util::validateClass(source)) {
            LOG(INFO) << "HID multi class check false breaking";
            return std::nullopt;
        }
        reason += Util::getClassName(source) + " ";
    }
    return reason;
}

Match matchClass(const DeviceInfo& info) {
    return info.interfaceClassList.empty() ? matchInputSources(info.deviceClass)
                                           : matchInterfaceClasses(info.interfaceClassList);
}

Match matchVendor(const DeviceInfo& info) {
    const std::string vendor = std::to_string(info.vendorId);
    if (Util::validateVid(info.vendorId)) return "Match by VID, VID : " + vendor;
    if (Util::validateVidPid(info.vendorId, info.productId)) {
        return "Match by VID_PID combination, VID : " + vendor +
               " PID: " + std::to_string(info.productId);
    }
    return std::nullopt;
}

// The whole judgement under one hold of the policy, so that a reload in between cannot mix two
// policies. Sysfs is not read here: a policy load never waits for the kernel.
Verdict judge(const DeviceInfo& info) {
    const auto policy = Util::readPolicy();
    const std::string mode = Util::getMode();
    if (mode == "default") return {mode, true, "Enabled by default rule"};

    Match match = matchClass(info);
    if (!match) match = matchVendor(info);
    if (mode == "blacklist") {
        if (match) return {mode, false, "Blacklisted: " + *match};
        return {mode, true, "No matching rule found to Blacklist the device"};
    }
    // Any other text left by a failed load is a whitelist, too: in doubt, refuse.
    if (match) return {mode, true, "Whitelisted: " + *match};
    return {mode, false, "No matching rule found to Whitelist the device"};
}

// A refused input device is only reported: it is the input subsystem that keeps it out.
void enforce(const DeviceInfo& info, const Verdict& verdict) {
    if (verdict.allowed || !isUsbDevice(info)) return;
    LOG(INFO) << "isDeviceAllowed called and updating status authorized to 0";
    UsbDevice::update_status(info.deviceId, kDeauthorize);
}

void logVerdict(const DeviceInfo& info, const Verdict& verdict) {
    LOG(INFO) << "isDeviceAllowed called with mode: " << verdict.mode
              << " DeviceInfo:= { DeviceId:" << info.deviceId << ", DeviceName: " << info.deviceName
              << ", ClassName: " << Util::getClassName(info.deviceClass) << "[ " << info.deviceClass
              << " ], InterfaceClassCount: " << info.interfaceClassList.size()
              << ", VendorId: " << info.vendorId << ", ProductId: " << info.productId
              << ", Status: " << verdict.allowed << ", Reason: " << verdict.reason << " }";
}

}  // namespace

binder::Status VUsbService::isDeviceAllowed(const DeviceInfo& info, bool* result) {
    if (isAutomationSet()) {
        LOG(INFO) << "isDeviceAllowed::Automation flag set, return";
        *result = true;
        return binder::Status::ok();
    }
    if (isUsbDevice(info) && isLeftToInputSubsystem(info)) {
        *result = false;
        return binder::Status::ok();
    }
    const Verdict verdict = judge(info);
    LOG(INFO) << "isDeviceAllowed res val:" << verdict.allowed;
    enforce(info, verdict);
    addDeviceList(info, verdict.allowed, verdict.reason);
    logVerdict(info, verdict);
    *result = verdict.allowed;
    return binder::Status::ok();
}

}  // namespace android::vus
