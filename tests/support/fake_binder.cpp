// SPDX-License-Identifier: Apache-2.0

#include "tests/support/fake_binder.h"

#include <algorithm>

#include <binder/Parcel.h>
#include <utils/String8.h>

namespace android::vus {

// A proxy comes to a process over binder. What libbinder sets without a lock at a process's first
// call, where several first calls would race, has been set by then: this makes that first call.
FakeRemoteBinder::FakeRemoteBinder(const sp<BBinder>& target) : target_(target) {
    Parcel().writeInterfaceToken(target->getInterfaceDescriptor());
}

void FakeRemoteBinder::Die() {
    std::vector<wp<DeathRecipient>> links;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        alive_ = false;
        links.swap(links_);
    }
    for (const wp<DeathRecipient>& link : links) {
        if (const sp<DeathRecipient> recipient = link.promote()) {
            recipient->binderDied(wp<IBinder>(this));
        }
    }
}

size_t FakeRemoteBinder::LinkCount() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return links_.size();
}

const String16& FakeRemoteBinder::getInterfaceDescriptor() const {
    return target_->getInterfaceDescriptor();
}

status_t FakeRemoteBinder::transact(uint32_t code, const Parcel& data, Parcel* reply,
                                    uint32_t flags) {
    return alive_ ? target_->transact(code, data, reply, flags) : DEAD_OBJECT;
}

status_t FakeRemoteBinder::linkToDeath(const sp<DeathRecipient>& recipient, void*, uint32_t) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!alive_) return DEAD_OBJECT;
    links_.push_back(recipient);
    return OK;
}

status_t FakeRemoteBinder::unlinkToDeath(const wp<DeathRecipient>& recipient, void*, uint32_t,
                                         wp<DeathRecipient>*) {
    if (unlink_result != OK) return unlink_result;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!alive_) return DEAD_OBJECT;
    const auto link = std::find(links_.begin(), links_.end(), recipient);
    if (link == links_.end()) return NAME_NOT_FOUND;
    links_.erase(link);
    return OK;
}

sp<IBinder> FakeServiceManager::checkService(const String16& name) const {
    const auto service = services.find(String8(name).string());
    return service == services.end() ? nullptr : service->second;
}

status_t FakeServiceManager::addService(const String16& name, const sp<IBinder>& service, bool,
                                        int) {
    if (add_result == OK) services[String8(name).string()] = service;
    return add_result;
}

Vector<String16> FakeServiceManager::listServices(int) {
    Vector<String16> names;
    for (const auto& [name, service] : services) names.add(String16(name.c_str()));
    return names;
}

}  // namespace android::vus
