// SPDX-License-Identifier: Apache-2.0
//
// The daemon's end, for tests of its clients: remembers what it was asked, and answers what it was
// told to. Reach it by remote() to have every call go through a parcel, as with the real one.

#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "android/vus/BnVUsbService.h"
#include "tests/support/fake_binder.h"

namespace android::vus {

class FakeService : public BnVUsbService {
  public:
    // What is answered; to be set before the calls.
    std::vector<DeviceInfo> devices;
    std::function<bool(const DeviceInfo&)> allow = [](const DeviceInfo&) { return true; };
    binder::Status answer;                // of every call
    std::vector<binder::Status> answers;  // of the next ones, the first one last
    std::function<void()> list_hook;      // called when the list is asked for
    std::string dump_text;
    bool note_lists = true;  // whether getDeviceList counts as a call

    // The calls so far, such as "judge 1001" or "reset 0"; Take() forgets them.
    std::vector<std::string> Take();
    // Waits until there are as many calls, or for 10 s.
    std::vector<std::string> TakeAtLeast(size_t count);
    sp<IVUsbServiceCallback> Callback();  // the last one registered

    binder::Status registerVusCallback(const sp<IVUsbServiceCallback>& callback) override;
    binder::Status unregisterVusCallback(const sp<IVUsbServiceCallback>& callback) override;
    binder::Status getDeviceList(std::vector<DeviceInfo>* out) override;
    binder::Status updateDeviceList(const DeviceInfo& info, int32_t action) override;
    binder::Status isDeviceAllowed(const DeviceInfo& info, bool* result) override;
    binder::Status resetUsbDevices(int32_t value) override;
    status_t dump(int fd, const Vector<String16>& arguments) override;

  private:
    binder::Status Note(const std::string& call);

    std::mutex mutex_;
    std::condition_variable noted_;
    std::vector<std::string> calls_;
    sp<IVUsbServiceCallback> callback_;
};

// A service of another process: a proxy to the fake, and the binder that can die.
struct RemoteService {
    sp<FakeRemoteBinder> binder;
    sp<IVUsbService> service;
};
RemoteService Remote(const sp<FakeService>& fake);

}  // namespace android::vus
