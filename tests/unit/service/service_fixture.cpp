// SPDX-License-Identifier: Apache-2.0

#include "service_fixture.h"

#include <private/binder/Static.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include <android-base/file.h>
#include <android-base/unique_fd.h>

namespace android::vus {

binder::Status RecordingCallback::onDeviceAdded(const DeviceInfo& info) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        events_.push_back("added " + info.deviceName);
        added.push_back(info);
    }
    // A copy, because the test may replace it from within.
    if (const auto action = on_added) action(info);
    return answer;
}

binder::Status RecordingCallback::onDeviceRemoved(const DeviceInfo& info) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        events_.push_back("removed " + info.deviceName);
    }
    if (const auto action = on_removed) action(info);
    return answer;
}

std::vector<std::string> RecordingCallback::Events() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return events_;
}

void Gate::Open() {
    const std::lock_guard<std::mutex> lock(mutex_);
    open_ = true;
    opened_.notify_all();
}

void Gate::Wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    // Twice what those wait who open it afterwards.
    EXPECT_TRUE(opened_.wait_for(lock, 2 * kLongEnough, [this] { return open_; }));
}

void ServiceTest::SetUp() {
    EmptyWorld();
    MakeDir(kConfigDir);
    MakeDir(kUsbDevicesDir);
    tree_.reset();
    Util::configMode = "default";
    Util::statusMessage = kStatusSuccess;
    Util::xml_parse_status = false;
    Util::classList.clear();
    Util::classMap.clear();
    Util::vidPidMap.clear();
    VUsbService::debugBuild = false;
    manager_ = new FakeServiceManager;
    gDefaultServiceManager = manager_;
    service_ = new VUsbService;
    logs_.Clear();
}

// The device lists and the map belong to the process: they are emptied for the next test.
void ServiceTest::TearDown() {
    SetProperty(kAutomationProperty, "0");
    service_->callbacks_.clear();
    for (const DeviceInfo& info : List()) service_->updateDeviceList(info, 0);
    const std::lock_guard<std::mutex> lock(UsbDevice::map_mutex);
    UsbDevice::deviceid_map.clear();
}

DeviceInfo ServiceTest::UsbDeviceInfo(int32_t id, const std::vector<int32_t>& classes,
                                      const std::string& name) {
    DeviceInfo info;
    info.deviceName = name.empty() ? "device " + std::to_string(id) : name;
    info.deviceId = id;
    info.interfaceClassList = classes;
    return info;
}

DeviceInfo ServiceTest::InputDevice(int32_t id, int32_t sources, const std::string& name) {
    DeviceInfo info = UsbDeviceInfo(id, {}, name);
    info.deviceClass = sources;
    info.deviceType = 1;
    return info;
}

sp<RecordingCallback> ServiceTest::RegisterClient() {
    const sp<RecordingCallback> client = new RecordingCallback;
    remotes_.push_back(new FakeRemoteBinder(client));
    service_->registerVusCallback(
            interface_cast<IVUsbServiceCallback>(sp<IBinder>(remotes_.back())));
    return client;
}

void ServiceTest::LoadPolicy(const std::string& xml) {
    WriteFile(kPolicyFile, xml);
    Util::createMapFromConfig(kPolicyFile);
}

void ServiceTest::AttachUsbDevice(const std::string& entry, int32_t number,
                                  const std::vector<int32_t>& classes) {
    if (!tree_) tree_.emplace();
    if (tree_->Has(entry)) tree_->Remove(entry);
    FakeDevice device = {};
    for (const int32_t code : classes) device.interfaces.push_back({code});
    tree_->AddDevice(entry, device, number);
}

std::string ServiceTest::Authorized(const std::string& interface) {
    return ReadFile(UsbPath(interface, "authorized")).substr(0, 1);
}

std::vector<DeviceInfo> ServiceTest::List() {
    std::vector<DeviceInfo> list;
    EXPECT_TRUE(service_->getDeviceList(&list).isOk());
    return list;
}

std::vector<int32_t> ServiceTest::ListedIds() {
    std::vector<int32_t> ids;
    for (const DeviceInfo& info : List()) ids.push_back(info.deviceId);
    return ids;
}

std::string ServiceTest::DumpText(const std::vector<std::string>& args) {
    Vector<String16> arguments;
    for (const std::string& argument : args) arguments.add(String16(argument.c_str()));
    return TextWrittenBy([&](int fd) { EXPECT_EQ(service_->dump(fd, arguments), OK); });
}

std::string ServiceTest::TextWrittenBy(const std::function<void(int fd)>& writer) {
    TemporaryFile file;
    writer(file.fd);
    std::string text;
    EXPECT_TRUE(base::ReadFileToString(file.path, &text));
    return text;
}

std::vector<std::string> ServiceTest::Messages() {
    return logs_.Messages();
}

std::vector<std::string> ServiceTest::OnlyFrom(const std::vector<std::string>& beginnings) {
    std::vector<std::string> messages = Messages();
    const auto other = [&](const std::string& message) {
        return std::none_of(beginnings.begin(), beginnings.end(), [&](const std::string& text) {
            return message.compare(0, text.size(), text) == 0;
        });
    };
    messages.erase(std::remove_if(messages.begin(), messages.end(), other), messages.end());
    return messages;
}

size_t ServiceTest::CountOf(const std::string& message) {
    const std::vector<std::string> messages = Messages();
    return std::count(messages.begin(), messages.end(), message);
}

bool ServiceTest::Logged(const ::testing::Matcher<std::string>& message) {
    const std::vector<std::string> messages = Messages();
    return std::any_of(messages.begin(), messages.end(),
                       [&](const std::string& text) { return message.Matches(text); });
}

void ServiceTest::LogToStderr(const std::function<void()>& body) {
    base::SetLogger(base::StderrLogger);
    body();
}

}  // namespace android::vus
