// SPDX-License-Identifier: Apache-2.0

#include "tools/common/service_finder.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>

#include "android/vus/paths.h"

namespace android::vus {

namespace {

constexpr char kBinderNode[] = "/dev/binder";

// Answers whether there is a service manager. The service is null if it knows of none.
#ifdef __ANDROID__
// The system starts again when its service manager dies.
bool ask_service_manager(sp<IBinder>* service) {
    if (ProcessState::self()->getContextObject(nullptr) == nullptr) return false;
    *service = defaultServiceManager()->checkService(String16(kServiceName));
    return true;
}
#else
// Not by libbinder's proxy: that is dead for good once it was used while the service manager was
// away. The driver takes handle 0 for whoever is service manager now.
bool ask_service_manager(sp<IBinder>* service) {
    constexpr int32_t kServiceManagerHandle = 0;
    ProcessState::self();
    Parcel question, answer;
    question.writeInterfaceToken(IServiceManager::descriptor);
    question.writeString16(String16(kServiceName));
    const auto what = IServiceManager::CHECK_SERVICE_TRANSACTION;
    IPCThreadState* const binder = IPCThreadState::self();
    if (binder->transact(kServiceManagerHandle, what, question, &answer, 0) != OK) return false;
    *service = answer.readStrongBinder();
    return true;
}
#endif

}  // namespace

bool has_binder(std::string* why_not) {
    if (access(kBinderNode, R_OK | W_OK) == 0) return true;
    *why_not = std::string(kBinderNode) + ": " + strerror(errno);
    return false;
}

FoundService find_service() {
    std::string why_not;
    if (!has_binder(&why_not)) return {nullptr, why_not};
    sp<IBinder> binder;
    if (!ask_service_manager(&binder)) return {nullptr, "the service manager is not running"};
    if (binder == nullptr) return {nullptr, "the daemon is not running"};
    return {interface_cast<IVUsbService>(binder), ""};
}

}  // namespace android::vus
