// SPDX-License-Identifier: Apache-2.0

#include "tests/unit/tools/fake_service.h"

#include <android-base/file.h>
#include <utils/String8.h>

#include <utility>

namespace android::vus {

std::vector<std::string> FakeService::Take() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::exchange(calls_, {});
}

std::vector<std::string> FakeService::TakeAtLeast(size_t count) {
    std::unique_lock<std::mutex> lock(mutex_);
    noted_.wait_for(lock, std::chrono::seconds(10), [&] { return calls_.size() >= count; });
    return std::exchange(calls_, {});
}

sp<IVUsbServiceCallback> FakeService::Callback() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return callback_;
}

binder::Status FakeService::Note(const std::string& call) {
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back(call);
    noted_.notify_all();
    if (answers.empty()) return answer;
    const binder::Status next = answers.back();
    answers.pop_back();
    return next;
}

binder::Status FakeService::registerVusCallback(const sp<IVUsbServiceCallback>& callback) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        callback_ = callback;
    }
    return Note("register");
}

binder::Status FakeService::unregisterVusCallback(const sp<IVUsbServiceCallback>& callback) {
    return Note(callback == Callback() ? "unregister" : "unregister another");
}

binder::Status FakeService::getDeviceList(std::vector<DeviceInfo>* out) {
    if (list_hook) list_hook();
    *out = devices;
    return note_lists ? Note("list") : answer;
}

binder::Status FakeService::updateDeviceList(const DeviceInfo& info, int32_t action) {
    return Note("update " + std::to_string(info.deviceId) + " " + std::to_string(action));
}

binder::Status FakeService::isDeviceAllowed(const DeviceInfo& info, bool* result) {
    *result = allow(info);
    return Note("judge " + std::to_string(info.deviceId));
}

binder::Status FakeService::resetUsbDevices(int32_t value) {
    return Note("reset " + std::to_string(value));
}

status_t FakeService::dump(int fd, const Vector<String16>& arguments) {
    std::string call = "dump";
    for (const String16& argument : arguments)
        call += std::string(" ") + String8(argument).string();
    Note(call);
    return base::WriteStringToFd(dump_text, fd) ? OK : UNKNOWN_ERROR;
}

RemoteService Remote(const sp<FakeService>& fake) {
    const sp<FakeRemoteBinder> binder = new FakeRemoteBinder(fake);
    return {binder, interface_cast<IVUsbService>(binder)};
}

}  // namespace android::vus
