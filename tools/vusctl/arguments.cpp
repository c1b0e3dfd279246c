// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/arguments.h"

#include "tools/workbench/device.h"

namespace android::vus::ctl {

std::optional<DeviceInfo> parse_device(const Words& words, std::string* error) {
    const auto device = workbench::parseDevice(words, error);
    if (!device) return std::nullopt;
    DeviceInfo info;
    info.deviceId = device->id.value_or(0);
    info.deviceName = device->name.empty() ? "vusctl" : device->name;
    info.deviceType = static_cast<int32_t>(device->type);
    info.deviceClass = device->claim.deviceClass;
    info.interfaceClassList = device->claim.interfaceClasses;
    info.vendorId = device->claim.vendorId;
    info.productId = device->claim.productId;
    return info;
}

}  // namespace android::vus::ctl
