// SPDX-License-Identifier: Apache-2.0
//
// The registered clients: who hears of added and removed devices, and what happens when one dies.

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

#include <android-base/logging.h>
#include <binder/IInterface.h>

#include "android/vus/gathered_log.h"
#include "android/vus/vu_service.h"

namespace android::vus {

binder::Status VUsbService::registerVusCallback(const sp<IVUsbServiceCallback>& callback) {
    LOG(INFO) << "registerVusCallback called" << callback.get();
    const sp<IBinder> binder = IInterface::asBinder(callback);
    LOG(INFO) << "registerVusCallback binder " << binder.get();
    const sp<CallbackDeathRecipient> recipient = new CallbackDeathRecipient(callback, this);

    const MutexLock<> lock(lock_);
    if (binder->linkToDeath(recipient) != OK) {
        LOG(ERROR) << "Failed to link death recipient to binder";
        return binder::Status::ok();
    }
    callbacks_.emplace(binder.get(), recipient);
    // At ERROR (kept: oddity 7).
    LOG(ERROR) << "Size of callbacks at registerVusCallback " << callbacks_.size();
    logCallbacks("registerVusCallback--: iterating map ");
    return binder::Status::ok();
}

binder::Status VUsbService::unregisterVusCallback(const sp<IVUsbServiceCallback>& callback) {
    LOG(INFO) << "unregisterVusCallback called" << callback.get();
    const sp<IBinder> binder = IInterface::asBinder(callback);
    LOG(INFO) << "unregisterVusCallback binder" << binder.get();

    const MutexLock<> lock(lock_);
    const auto entry = findCallback(binder.get());
    if (entry == callbacks_.end()) {
        LOG(INFO) << "Given callback not registered with this list";
        return binder::Status::ok();
    }
    UnregisterInternal(entry);
    LOG(INFO) << "Size of callbacks at unregisterVusCallback" << callbacks_.size();
    // "before erase", although it is logged after it (kept: oddity 8).
    logCallbacks("unregisterVusCallback--: before erase iterating map ");
    return binder::Status::ok();
}

VUsbService::CallbackMap::iterator VUsbService::findCallback(IBinder* binder) {
    const auto first = callbacks_.lower_bound(binder);
    return first != callbacks_.end() && first->first == binder ? first : callbacks_.end();
}

bool VUsbService::UnregisterInternal(CallbackMap::iterator entry) {
    const sp<CallbackDeathRecipient> recipient = entry->second;
    callbacks_.erase(entry);
    if (IInterface::asBinder(recipient->callback())->unlinkToDeath(recipient) != OK) {
        LOG(ERROR) << "Failed to unlink death recipient from binder";
        return false;
    }
    LOG(INFO) << "Callback successfully removed from list";
    return true;
}

void VUsbService::logCallbacks(const char* prefix) const {
    if (!debugBuild) return;
    for (const auto& [binder, recipient] : callbacks_) {
        LOG(INFO) << prefix << "key:" << binder << " value:" << recipient.get();
    }
}

std::vector<sp<VUsbService::CallbackDeathRecipient>> VUsbService::copyRecipients() {
    const MutexLock<> lock(lock_);
    std::vector<sp<CallbackDeathRecipient>> recipients;
    recipients.reserve(callbacks_.size());
    for (const auto& [binder, recipient] : callbacks_) recipients.push_back(recipient);
    return recipients;
}

// One event on its way through the clients. A thread that gets stuck in a client leaves the rest of
// it to another one.
struct VUsbService::Walk {
    const char* const logPrefix;
    const ClientEvent event;
    const DeviceInfo info;
    const std::vector<sp<CallbackDeathRecipient>> recipients;
    std::atomic<size_t> next{0};
};

// What a client answers is its own affair: it must not keep the others from hearing.
void VUsbService::tellRest(const std::shared_ptr<Walk>& walk) {
    for (size_t i = walk->next++; i < walk->recipients.size(); i = walk->next++) {
        const sp<CallbackDeathRecipient>& recipient = walk->recipients[i];
        const sp<IVUsbServiceCallback> callback = recipient->callback();
        const auto tell = [walk, callback] {
            if (debugBuild) LOG(INFO) << walk->logPrefix << callback.get();
            writeGatheredLog();
            ((*callback).*(walk->event))(walk->info);
        };
        writeGatheredLog();
        clientCalls_.call({IInterface::asBinder(callback), recipient->process()}, tell,
                          [this, walk] { tellRest(walk); });
    }
}

void VUsbService::notifyClients(const DeviceInfo& info, const char* logPrefix, ClientEvent event) {
    auto recipients = copyRecipients();
    if (recipients.empty()) return;
    tellRest(std::shared_ptr<Walk>(new Walk{logPrefix, event, info, std::move(recipients)}));
}

void VUsbService::notifyDeviceAdded(const DeviceInfo& info) {
    notifyClients(info, "addDeviceList: sending callback to client of onDeviceAdded  ",
                  &IVUsbServiceCallback::onDeviceAdded);
}

void VUsbService::notifyDeviceRemoved(const DeviceInfo& info) {
    notifyClients(info, "updateDeviceList--: sending callback to client onDeviceRemoved ",
                  &IVUsbServiceCallback::onDeviceRemoved);
}

VUsbService::CallbackDeathRecipient::CallbackDeathRecipient(sp<IVUsbServiceCallback> callback,
                                                            VUsbService* owner)
      : callback_(std::move(callback)), owner_(owner), process_(ClientCalls::callingProcess()) {
    CHECK(callback_.get());
    CHECK(owner_);
}

void VUsbService::CallbackDeathRecipient::binderDied(const wp<IBinder>& who) {
    LOG(INFO) << "Received binderDied";
    const sp<IBinder> binder = IInterface::asBinder(callback_);
    CHECK(who.unsafe_get() == binder.get());

    const MutexLock<> lock(owner_->lock_);
    const auto iter = owner_->findCallback(binder.get());
    CHECK(iter != owner_->callbacks_.end());
    owner_->callbacks_.erase(iter);  // no unlinking: the binder is dead
    LOG(INFO) << "Size of callbacks at unregisterVusCallback binderDied "
              << owner_->callbacks_.size();
    LOG(INFO) << "Callback from dead process unregistered";
}

}  // namespace android::vus
