// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/reporter.h"

#include <thread>
#include <tuple>

#include <android-base/stringprintf.h>

namespace android::vus::hotplug {

namespace {

constexpr int32_t kRemoved = 0;

// All that a reader fills in.
auto fields(const DeviceInfo& info) {
    return std::tie(info.deviceType, info.deviceId, info.deviceClass, info.interfaceClassList,
                    info.vendorId, info.productId, info.deviceName);
}

std::string class_text(const DeviceInfo& info) {
    if (info.deviceType != 0) return base::StringPrintf("sources %#x", info.deviceClass);
    std::string text = "classes ";
    for (const int32_t code : info.interfaceClassList) {
        if (text.back() != ' ') text += ",";
        text += std::to_string(code);
    }
    return text.back() == ' ' ? text + "-" : text;
}

}  // namespace

Reporter::~Reporter() {
    drain();
}

void Reporter::set_service(const sp<IVUsbService>& service) {
    const std::lock_guard<std::mutex> lock(mutex_);
    service_ = service;
    reported_.clear();
}

void Reporter::judge(const std::string& device, Read read) {
    enqueue(device, [this, device, read = std::move(read)](IVUsbService& service) {
        report_judged(service, device, read);
    });
}

void Reporter::removed(const std::string& device) {
    enqueue(device, [this, device](IVUsbService& service) { report_removed(service, device); });
}

void Reporter::keep_only(const std::set<std::string>& present) {
    std::set<std::string> gone;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& [device, info] : reported_) gone.insert(device);
        // Those whose first report is still being made.
        for (const auto& [device, queue] : queues_) gone.insert(device);
    }
    for (const std::string& device : gone) {
        if (present.count(device) == 0) removed(device);
    }
}

void Reporter::drain() {
    std::unique_lock<std::mutex> lock(mutex_);
    idle_.wait(lock, [this] { return queues_.empty(); });
}

void Reporter::report_judged(IVUsbService& service, const std::string& device, const Read& read) {
    const auto info = read();
    const auto before = reported(device);
    const bool same = info && before && fields(*info) == fields(*before);
    // The kernel never uses an input device's number again: it was found, and is announced now.
    if (same && info->deviceType != 0) return;
    if (before && !same) report_removed(service, device);
    if (!info) return;
    remember(device, *info, service);
    bool allowed = false;
    const binder::Status status = service.isDeviceAllowed(*info, &allowed);
    print(device, *info, !status.isOk() ? "unanswered" : allowed ? "allowed" : "not-allowed");
}

void Reporter::report_removed(IVUsbService& service, const std::string& device) {
    const auto info = reported(device);
    if (!info) return;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        reported_.erase(device);
    }
    const binder::Status status = service.updateDeviceList(*info, kRemoved);
    print(device, *info, status.isOk() ? "removed" : "unanswered");
}

std::optional<DeviceInfo> Reporter::reported(const std::string& device) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto known = reported_.find(device);
    if (known == reported_.end()) return std::nullopt;
    return known->second;
}

// A report that began with a service which has gone since is none that the next one has heard.
void Reporter::remember(const std::string& device, const DeviceInfo& info,
                        const IVUsbService& service) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (service_.get() == &service) reported_[device] = info;
}

void Reporter::enqueue(const std::string& device, Report report) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (service_ == nullptr) return;
    const auto [queue, fresh] = queues_.try_emplace(device);
    queue->second.push_back([service = service_, report = std::move(report)] { report(*service); });
    // Detached, because nobody waits for one of them; drain() waits for all.
    if (fresh) std::thread(&Reporter::work, this, device).detach();
}

void Reporter::work(const std::string& device) {
    std::unique_lock<std::mutex> lock(mutex_);
    const auto queue = queues_.find(device);
    while (!queue->second.empty()) {
        const auto report = std::move(queue->second.front());
        queue->second.pop_front();
        lock.unlock();
        report();
        lock.lock();
    }
    queues_.erase(queue);
    // Under the lock: the reporter may be gone as soon as it is free.
    idle_.notify_all();
}

void Reporter::print(const std::string& device, const DeviceInfo& info, const std::string& answer) {
    if (!print_) return;
    print_(base::StringPrintf("%s %s %04x:%04x %s %s", device.c_str(),
                              info.deviceType == 0 ? "usb" : "input", info.vendorId, info.productId,
                              class_text(info).c_str(), answer.c_str()));
}

}  // namespace android::vus::hotplug
