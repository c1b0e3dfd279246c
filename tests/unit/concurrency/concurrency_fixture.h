// SPDX-License-Identifier: Apache-2.0
//
// A service over a USB tree, for many threads at once. What the threads do together is watched by
// the sanitizers; what comes out of it is asserted here.

#pragma once

#include <stdint.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "android/vus/vu_service.h"
#include "tests/support/usb_tree.h"
#include "tests/support/waiting.h"
#include "tests/support/world.h"

namespace android::vus {

inline constexpr char kEmptyWhitelist[] = "<usbconfig mode=\"whitelist\"></usbconfig>";

class ConcurrencyTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    static void LoadPolicy(const std::string& xml);

    // As the platform reports it, with the classes of its interfaces.
    static DeviceInfo UsbInfo(int32_t id, const FakeDevice& device);
    static DeviceInfo InputInfo(int32_t id, int32_t sources);

    bool Judge(const DeviceInfo& info);
    void ReportRemoved(const DeviceInfo& info) { service_->updateDeviceList(info, 0); }
    // The device's record in the list that clients see.
    std::optional<DeviceInfo> Find(int32_t id);

    // The values of "authorized" of a device's interfaces, one character each.
    static std::string Authorized(const std::string& entry, const FakeDevice& device);
    static void AuthorizeAgain(const std::string& entry, const FakeDevice& device);

    // Runs every body on a thread of its own, all released at the same moment, to their ends.
    static void RunTogether(const std::vector<std::function<void()>>& bodies);

    // Runs `body` on a thread of its own. If it has not ended in time, the program ends here,
    // naming `what`: a thread that is stuck cannot be called back.
    static void ExpectToEnd(const std::string& what, const std::function<void()>& body);

    sp<VUsbService> service_;
    std::optional<UsbTree> tree_;
};

}  // namespace android::vus
