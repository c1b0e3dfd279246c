// SPDX-License-Identifier: Apache-2.0
//
// Finds the daemon, or says at once why there is none. libbinder by itself ends the process on a
// machine without the driver, and waits for ever for a service manager.

#pragma once

#include <string>

#include "android/vus/IVUsbService.h"

namespace android::vus {

struct FoundService {
    sp<IVUsbService> service;  // null if there is none
    std::string why_not;       // for people; empty if there is one
};

// Whether the kernel has binder and lets this process use it; `why_not` tells what is wrong.
bool has_binder(std::string* why_not);

FoundService find_service();

}  // namespace android::vus
