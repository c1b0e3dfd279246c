// SPDX-License-Identifier: Apache-2.0
//
// What the tests of the service share: a service over an empty policy and an empty USB tree, its
// log, and clients as the service sees them.

#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <utils/String16.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "android/vus/BnVUsbServiceCallback.h"
#include "android/vus/paths.h"
#include "android/vus/usbdevice.h"
#include "android/vus/util.h"
#include "android/vus/vu_service.h"
#include "tests/support/fake_binder.h"
#include "tests/support/usb_tree.h"
#include "tests/support/waiting.h"
#include "tests/support/world.h"

namespace android::vus {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

// A client's callback object. Remembers what it was told, and then does what the test wants.
class RecordingCallback : public BnVUsbServiceCallback {
  public:
    binder::Status onDeviceAdded(const DeviceInfo& info) override;
    binder::Status onDeviceRemoved(const DeviceInfo& info) override;

    // "added NAME" and "removed NAME", in order.
    std::vector<std::string> Events();

    std::function<void(const DeviceInfo&)> on_added;
    std::function<void(const DeviceInfo&)> on_removed;
    binder::Status answer;
    std::vector<DeviceInfo> added;

  private:
    std::mutex mutex_;
    std::vector<std::string> events_;
};

// Opens once. A test that leaves it closed fails, and whoever waits goes on.
class Gate {
  public:
    void Open();
    void Wait();

  private:
    std::mutex mutex_;
    std::condition_variable opened_;
    bool open_ = false;
};

class ServiceTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    static DeviceInfo UsbDeviceInfo(int32_t id, const std::vector<int32_t>& classes,
                                    const std::string& name = "");
    static DeviceInfo InputDevice(int32_t id, int32_t sources, const std::string& name = "");

    // A client of another process, registered for as long as the test runs.
    sp<RecordingCallback> RegisterClient();

    void LoadPolicy(const std::string& xml);

    // Attaches a device with one interface a class, in the place of what is at that port.
    void AttachUsbDevice(const std::string& entry, int32_t number,
                         const std::vector<int32_t>& classes);
    // Whether an interface of it is switched on, as the kernel says it: "1" or "0".
    static std::string Authorized(const std::string& interface);

    std::vector<DeviceInfo> List();
    std::vector<int32_t> ListedIds();
    std::string DumpText(const std::vector<std::string>& args = {});
    static std::string TextWrittenBy(const std::function<void(int fd)>& writer);

    // The messages logged so far, of every severity.
    std::vector<std::string> Messages();
    // Of these, those that begin with one of the given texts.
    std::vector<std::string> OnlyFrom(const std::vector<std::string>& beginnings);
    size_t CountOf(const std::string& message);
    bool Logged(const ::testing::Matcher<std::string>& message);

    // Runs `body` with the log on standard error, where a death test looks for it.
    static void LogToStderr(const std::function<void()>& body);

    // True as soon as `condition` holds, false if it does not in time.
    static bool WaitFor(const std::function<bool()>& condition,
                        std::chrono::milliseconds timeout = kLongEnough) {
        return Eventually(condition, timeout);
    }

    template <typename T>
    static std::string Text(const T* address) {
        std::ostringstream text;
        text << address;
        return text.str();
    }

    LogCapture logs_;
    std::optional<UsbTree> tree_;  // if a device was attached
    sp<FakeServiceManager> manager_;
    sp<VUsbService> service_;

  private:
    std::vector<sp<FakeRemoteBinder>> remotes_;
};

}  // namespace android::vus
