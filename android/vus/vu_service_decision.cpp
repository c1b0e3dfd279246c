// SPDX-License-Identifier: Apache-2.0
//
// The admission decision: may this device be used, and why.
//
// The rules are judge()'s; what is here is whom they are asked about, what follows from the answer,
// and what the log says. A USB keyboard, mouse or the like is not judged as a USB device at all:
// the input subsystem reports it a second time, as an input device.

#include <optional>

#include <android-base/logging.h>

#include "android/vus/device_map.h"
#include "android/vus/gathered_log.h"
#include "android/vus/judge.h"
#include "android/vus/util.h"
#include "android/vus/vu_service.h"

namespace android::vus {

namespace {

constexpr int kDeauthorize = 0;

bool isUsbDevice(const DeviceInfo& info) {
    return info.deviceType == 0;
}

// Asks for the device's interfaces afresh: a refusal and the device's record need them in every
// case. Answers whether it has nothing but HID interfaces (or none at all) and is no vendor HID.
bool refreshAndScreen(const DeviceInfo& info, DeviceRecords* interfaces) {
    const std::optional<int32_t> other = firstClassOtherThanHid(info.interfaceClassList);
    if (other) LOG(INFO) << "class is " << *other << "not HID";
    *interfaces = refresh_device_map(info.deviceId);
    return !other && !has_vendor_hid(info.deviceId, *interfaces);
}

Claim claimOf(const DeviceInfo& info) {
    return {info.deviceClass, info.interfaceClassList, info.vendorId, info.productId};
}

// The whole judgement under one hold of the policy, so that a reload in between cannot mix two
// policies. Sysfs is not read here and nothing is logged: a policy load never waits for the kernel.
Judgement judgeByPolicyInForce(const DeviceInfo& info) {
    const PolicyReadLock policy;
    return judge(claimOf(info), Util::rulesInForce());
}

// A refused input device is only reported: it is the input subsystem that keeps it out. A USB
// device is switched off by what this decision found of it, whatever has become of the map since.
void enforce(const DeviceInfo& info, const Judgement& verdict, const DeviceRecords& interfaces) {
    if (verdict.allowed || !isUsbDevice(info)) return;
    LOG(INFO) << "isDeviceAllowed called and updating status authorized to 0";
    authorize(info.deviceId, interfaces, kDeauthorize);
}

void logVerdict(const DeviceInfo& info, const Judgement& verdict) {
    LOG(INFO) << "isDeviceAllowed called with mode: " << verdict.mode
              << " DeviceInfo:= { DeviceId:" << info.deviceId << ", DeviceName: " << info.deviceName
              << ", ClassName: " << Util::getClassName(info.deviceClass) << "[ " << info.deviceClass
              << " ], InterfaceClassCount: " << info.interfaceClassList.size()
              << ", VendorId: " << info.vendorId << ", ProductId: " << info.productId
              << ", Status: " << verdict.allowed << ", Reason: " << verdict.reason << " }";
}

}  // namespace

binder::Status VUsbService::isDeviceAllowed(const DeviceInfo& info, bool* result) {
    const GatheredLog log;
    if (isAutomationSet()) {
        LOG(INFO) << "isDeviceAllowed::Automation flag set, return";
        *result = true;
        return binder::Status::ok();
    }
    DeviceRecords interfaces;
    if (isUsbDevice(info) && refreshAndScreen(info, &interfaces)) {
        LOG(INFO) << "The HID device is controlled by Input Subsystem  ";
        *result = false;
        return binder::Status::ok();
    }
    const Judgement verdict = judgeByPolicyInForce(info);
    Util::logSteps(verdict.steps);
    LOG(INFO) << "isDeviceAllowed res val:" << verdict.allowed;
    enforce(info, verdict, interfaces);
    enterDevice(info, verdict.allowed, verdict.reason, interfaces);
    logVerdict(info, verdict);
    *result = verdict.allowed;
    return binder::Status::ok();
}

}  // namespace android::vus
