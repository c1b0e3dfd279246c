// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/context.h"

#include <utils/String8.h>

namespace android::vus::ctl {

int Context::usage_error(const std::string& message) {
    err << "vusctl: " << message << " (vusctl --help tells more)\n";
    return kUsage;
}

int Context::failure(const binder::Status& status) {
    return failed(std::string("the daemon did not answer: ") + status.toString8().string());
}

int Context::failed(const std::string& message) {
    err << "vusctl: " << message << "\n";
    return kFailed;
}

sp<IVUsbService> Context::service() {
    const FoundService found = find();
    if (found.service == nullptr) err << "vusctl: " << found.why_not << "\n";
    return found.service;
}

}  // namespace android::vus::ctl
