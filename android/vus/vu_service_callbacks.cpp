// SPDX-License-Identifier: Apache-2.0
//
// The registered clients: who hears of added and removed devices, and what happens when one dies.

#include <android-base/logging.h>
#include <binder/IInterface.h>

#include "android/vus/vu_service.h"

namespace android::vus {

binder::Status VUsbService::registerVusCallback(const sp<IVUsbServiceCallback>& callback) {
    LOG(INFO) << "registerVusCallback called" << callback.get();
    const sp<IBinder> binder = IInterface::asBinder(callback);
    LOG(INFO) << "registerVusCallback binder " << binder.get();
    const sp<CallbackDeathRecipient> recipient = new CallbackDeathRecipient(callback, this);

    const std::lock_guard<std::mutex> lock(lock_);
    if (binder->linkToDeath(recipient) != OK) {
        LOG(ERROR) << "Failed to link death recipient to binder";
        return binder::Status::ok();
    }
    callbacks_.emplace(binder.get(), recipient);
    // At ERROR, on purpose.
    LOG(ERROR) << "Size of callbacks at registerVusCallback " << callbacks_.size();
    logCallbacks("registerVusCallback--: iterating map ");
    return binder::Status::ok();
}

binder::Status VUsbService::unregisterVusCallback(const sp<IVUsbServiceCallback>& callback) {
    LOG(INFO) << "unregisterVusCallback called" << callback.get();
    const sp<IBinder> binder = IInterface::asBinder(callback);
    LOG(INFO) << "unregisterVusCallback binder" << binder.get();

    const std::lock_guard<std::mutex> lock(lock_);
    const auto entry = findCallback(binder.get());
    if (entry == callbacks_.end()) {
        LOG(INFO) << "Given callback not registered with this list";
        return binder::Status::ok();
    }
    UnregisterInternal(entry);
    LOG(INFO) << "Size of callbacks at unregisterVusCallback" << callbacks_.size();
    // "before erase", although it is logged after it: on purpose.
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

std::vector<sp<IVUsbServiceCallback>> VUsbService::copyCallbacks() {
    const std::lock_guard<std::mutex> lock(lock_);
    std::vector<sp<IVUsbServiceCallback>> callbacks;
    callbacks.reserve(callbacks_.size());
    for (const auto& [binder, recipient] : callbacks_) callbacks.push_back(recipient->callback());
    return callbacks;
}

// What a client answers is its own affair: it must not keep the others from hearing.
void VUsbService::notifyDeviceAdded(const DeviceInfo& info) {
    for (const sp<IVUsbServiceCallback>& callback : copyCallbacks()) {
        if (debugBuild) {
            LOG(INFO) << "addDeviceList: sending callback to client of onDeviceAdded  "
                      << callback.get();
        }
        callback->onDeviceAdded(info);
    }
}

void VUsbService::notifyDeviceRemoved(const DeviceInfo& info) {
    for (const sp<IVUsbServiceCallback>& callback : copyCallbacks()) {
        if (debugBuild) {
            LOG(INFO) << "updateDeviceList--: sending callback to client onDeviceRemoved "
                      << callback.get();
        }
        callback->onDeviceRemoved(info);
    }
}

VUsbService::CallbackDeathRecipient::CallbackDeathRecipient(sp<IVUsbServiceCallback> callback,
                                                            VUsbService* owner)
      : callback_(std::move(callback)), owner_(owner) {
    CHECK(callback_.get());
    CHECK(owner_);
}

void VUsbService::CallbackDeathRecipient::binderDied(const wp<IBinder>& who) {
    LOG(INFO) << "Received binderDied";
    const sp<IBinder> binder = IInterface::asBinder(callback_);
    CHECK(who.unsafe_get() == binder.get());

    const std::lock_guard<std::mutex> lock(owner_->lock_);
    const auto iter = owner_->findCallback(binder.get());
    CHECK(iter != owner_->callbacks_.end());
    owner_->callbacks_.erase(iter);  // no unlinking: the binder is dead
    LOG(INFO) << "Size of callbacks at unregisterVusCallback binderDied "
              << owner_->callbacks_.size();
    LOG(INFO) << "Callback from dead process unregistered";
}

}  // namespace android::vus
