// SPDX-License-Identifier: Apache-2.0

#include "tools/common/service_finder.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>

#include "android/vus/paths.h"

namespace android::vus {

namespace {

constexpr char kBinderNode[] = "/dev/binder";

}  // namespace

bool has_binder(std::string* why_not) {
    if (access(kBinderNode, R_OK | W_OK) == 0) return true;
    *why_not = std::string(kBinderNode) + ": " + strerror(errno);
    return false;
}

FoundService find_service() {
    std::string why_not;
    if (!has_binder(&why_not)) return {nullptr, why_not};
    if (ProcessState::self()->getContextObject(nullptr) == nullptr) {
        return {nullptr, "the service manager is not running"};
    }
    const sp<IBinder> binder = defaultServiceManager()->checkService(String16(kServiceName));
    if (binder == nullptr) return {nullptr, "the daemon is not running"};
    return {interface_cast<IVUsbService>(binder), ""};
}

}  // namespace android::vus
