// SPDX-License-Identifier: Apache-2.0

#include "tests/unit/concurrency/concurrency_fixture.h"

#include <stdio.h>
#include <stdlib.h>

#include <chrono>
#include <future>
#include <thread>

#include <android-base/logging.h>

#include "android/vus/paths.h"
#include "android/vus/usbdevice.h"
#include "android/vus/util.h"

namespace android::vus {

void ConcurrencyTest::SetUp() {
    EmptyWorld();
    MakeDir(kConfigDir);
    base::SetLogger(
            [](base::LogId, base::LogSeverity, const char*, const char*, unsigned, const char*) {});
    service_ = new VUsbService;
    tree_.emplace();
    tree_->AddBus(1);
}

// The device lists, the tables and the map belong to the process.
void ConcurrencyTest::TearDown() {
    std::vector<DeviceInfo> list;
    service_->getDeviceList(&list);
    for (const DeviceInfo& info : list) ReportRemoved(info);
    LoadPolicy("<usbconfig mode=\"default\"/>");
    UsbDevice::deviceid_map.clear();
    base::SetLogger(base::StderrLogger);
}

void ConcurrencyTest::LoadPolicy(const std::string& xml) {
    WriteFile(kPolicyFile, xml);
    Util::createMapFromConfig(kPolicyFile);
    ASSERT_TRUE(Util::xml_parse_status) << Util::statusMessage;
}

DeviceInfo ConcurrencyTest::UsbInfo(int32_t id, const FakeDevice& device) {
    DeviceInfo info;
    info.deviceName = "device " + std::to_string(id);
    info.deviceId = id;
    info.vendorId = device.vendor;
    info.productId = device.product;
    for (const FakeInterface& interface : device.interfaces) {
        info.interfaceClassList.push_back(interface.code);
    }
    return info;
}

DeviceInfo ConcurrencyTest::InputInfo(int32_t id, int32_t sources) {
    DeviceInfo info;
    info.deviceName = "input " + std::to_string(id);
    info.deviceId = id;
    info.deviceType = 1;
    info.deviceClass = sources;
    return info;
}

bool ConcurrencyTest::Judge(const DeviceInfo& info) {
    bool allowed = false;
    EXPECT_TRUE(service_->isDeviceAllowed(info, &allowed).isOk());
    return allowed;
}

std::optional<DeviceInfo> ConcurrencyTest::Find(int32_t id) {
    std::vector<DeviceInfo> list;
    EXPECT_TRUE(service_->getDeviceList(&list).isOk());
    for (const DeviceInfo& info : list) {
        if (info.deviceId == id) return info;
    }
    return std::nullopt;
}

std::string ConcurrencyTest::Authorized(const std::string& entry, const FakeDevice& device) {
    std::string values;
    for (size_t i = 0; i < device.interfaces.size(); ++i) {
        const std::string interface = entry + ":1." + std::to_string(i);
        values += ReadFile(UsbPath(interface, "authorized")).substr(0, 1);
    }
    return values;
}

void ConcurrencyTest::AuthorizeAgain(const std::string& entry, const FakeDevice& device) {
    for (size_t i = 0; i < device.interfaces.size(); ++i) {
        WriteFile(UsbPath(entry + ":1." + std::to_string(i), "authorized"), "1\n");
    }
}

void ConcurrencyTest::RunTogether(const std::vector<std::function<void()>>& bodies) {
    std::promise<void> start;
    const std::shared_future<void> started = start.get_future();
    std::vector<std::thread> threads;
    for (const std::function<void()>& body : bodies) {
        threads.emplace_back([&started, &body] {
            started.wait();
            body();
        });
    }
    start.set_value();
    for (std::thread& thread : threads) thread.join();
}

void ConcurrencyTest::ExpectToEnd(const std::string& what, const std::function<void()>& body) {
    const std::future<void> end = std::async(std::launch::async, body);
    if (end.wait_for(kLongEnough) == std::future_status::ready) return;
    fprintf(stderr, "stuck: %s\n", what.c_str());
    abort();
}

}  // namespace android::vus
