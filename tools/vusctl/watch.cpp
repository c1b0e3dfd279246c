// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/watch.h"

#include <android-base/stringprintf.h>

#include "tools/common/text.h"
#include "tools/vusctl/render.h"

namespace android::vus::ctl {

binder::Status EventPrinter::onDeviceAdded(const DeviceInfo& info) {
    print("added", info);
    return binder::Status::ok();
}

binder::Status EventPrinter::onDeviceRemoved(const DeviceInfo& info) {
    print("removed", info);
    return binder::Status::ok();
}

void EventPrinter::print(const char* event, const DeviceInfo& info) {
    std::string line;
    if (json_) {
        line = std::string("{\"event\":\"") + event + "\",\"device\":" + json_object(info) + "}";
    } else {
        line = base::StringPrintf("%s %d %04x:%04x %s", event, info.deviceId,
                                  info.vendorId & 0xFFFF, info.productId & 0xFFFF,
                                  printable(info.deviceName).c_str());
        // A removal is reported by the one who saw it, who knows of no verdict.
        if (!info.reason.empty()) {
            line += std::string(info.status == 1 ? ": allowed: " : ": refused: ") +
                    printable(info.reason);
        }
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    out_ << line << std::endl;
}

}  // namespace android::vus::ctl
