// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/reporter.h"

#include <thread>

#include <android-base/stringprintf.h>

namespace android::vus::hotplug {

namespace {

constexpr int32_t kRemoved = 0;

std::string class_text(const DeviceInfo& info) {
    if (info.deviceType != 0) return base::StringPrintf("sources %#x", info.deviceClass);
    std::string text = "classes ";
    for (const int32_t code : info.interfaceClassList) {
        if (text.back() != ' ') text += ",";
        text += std::to_string(code);
    }
    return text;
}

}  // namespace

Reporter::~Reporter() {
    drain();
}

void Reporter::set_service(const sp<IVUsbService>& service) {
    const std::lock_guard<std::mutex> lock(mutex_);
    service_ = service;
}

void Reporter::judge(const std::string& entry, const DeviceInfo& info) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        judged_[entry] = info;
    }
    enqueue(entry, [this, entry, info](IVUsbService& service) {
        bool allowed = false;
        const binder::Status status = service.isDeviceAllowed(info, &allowed);
        print(entry, info, !status.isOk() ? "unanswered" : allowed ? "allowed" : "not-allowed");
    });
}

void Reporter::removed(const std::string& entry) {
    DeviceInfo info;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto known = judged_.find(entry);
        if (known == judged_.end()) return;
        info = known->second;
        judged_.erase(known);
    }
    enqueue(entry, [this, entry, info](IVUsbService& service) {
        const binder::Status status = service.updateDeviceList(info, kRemoved);
        print(entry, info, status.isOk() ? "removed" : "unanswered");
    });
}

bool Reporter::knows(const std::string& entry) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return judged_.count(entry) != 0;
}

void Reporter::drain() {
    std::unique_lock<std::mutex> lock(mutex_);
    idle_.wait(lock, [this] { return queues_.empty(); });
}

void Reporter::enqueue(const std::string& entry, Report report) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto [queue, fresh] = queues_.try_emplace(entry);
    queue->second.push_back(std::move(report));
    // Detached, because nobody waits for one of them; drain() waits for all.
    if (fresh) std::thread(&Reporter::work, this, entry).detach();
}

void Reporter::work(const std::string& entry) {
    std::unique_lock<std::mutex> lock(mutex_);
    const auto queue = queues_.find(entry);
    while (!queue->second.empty()) {
        const Report report = std::move(queue->second.front());
        queue->second.pop_front();
        lock.unlock();
        make_report(report);
        lock.lock();
    }
    queues_.erase(queue);
    // Under the lock: the reporter may be gone as soon as it is free.
    idle_.notify_all();
}

void Reporter::make_report(const Report& report) {
    sp<IVUsbService> service;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        service = service_;
    }
    if (service != nullptr) report(*service);
}

void Reporter::print(const std::string& entry, const DeviceInfo& info, const std::string& answer) {
    if (!print_) return;
    print_(base::StringPrintf("%s %s %04x:%04x %s %s", entry.c_str(),
                              info.deviceType == 0 ? "usb" : "input", info.vendorId, info.productId,
                              class_text(info).c_str(), answer.c_str()));
}

}  // namespace android::vus::hotplug
