// SPDX-License-Identifier: Apache-2.0
//
// What stands at the other end of binder in the tests of the service.

#pragma once

#include <binder/Binder.h>
#include <binder/IServiceManager.h>
#include <utils/RefBase.h>

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace android::vus {

// An object of another process: a proxy made from it parcels every call, and it can die.
class FakeRemoteBinder : public IBinder {
  public:
    explicit FakeRemoteBinder(const sp<BBinder>& target);

    // Every call fails from now on, and each linked recipient gets its notice, in linking order.
    void Die();
    size_t LinkCount();

    // Not OK: what unlinkToDeath answers, without unlinking.
    status_t unlink_result = OK;

    sp<IInterface> queryLocalInterface(const String16&) override { return nullptr; }
    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override { return alive_; }
    status_t pingBinder() override { return alive_ ? OK : DEAD_OBJECT; }
    status_t dump(int, const Vector<String16>&) override { return INVALID_OPERATION; }
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override;
    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie,
                         uint32_t flags) override;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie, uint32_t flags,
                           wp<DeathRecipient>* outRecipient) override;
    void attachObject(const void*, void*, void*, object_cleanup_func) override {}
    void* findObject(const void*) const override { return nullptr; }
    void detachObject(const void*) override {}

  private:
    const sp<BBinder> target_;
    std::atomic<bool> alive_{true};
    std::mutex mutex_;
    std::vector<wp<DeathRecipient>> links_;  // guarded by mutex_
};

// The service manager of the test process.
class FakeServiceManager : public BnInterface<IServiceManager> {
  public:
    status_t add_result = OK;
    std::map<std::string, sp<IBinder>> services;

    sp<IBinder> getService(const String16& name) const override { return checkService(name); }
    sp<IBinder> checkService(const String16& name) const override;
    status_t addService(const String16& name, const sp<IBinder>& service, bool allowIsolated,
                        int dumpsysFlags) override;
    Vector<String16> listServices(int dumpsysFlags) override;
};

}  // namespace android::vus
