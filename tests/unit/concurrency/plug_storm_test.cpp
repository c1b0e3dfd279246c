// SPDX-License-Identifier: Apache-2.0
//
// Devices that come, are judged, and go on eight threads at once. The map of interfaces is rebuilt
// by each decision, with whatever is plugged at that moment.

#include <array>

#include "android/vus/usbdevice.h"
#include "tests/unit/concurrency/concurrency_fixture.h"

namespace android::vus {
namespace {

constexpr int kThreads = 8;
constexpr int kPlugs = 60;  // per thread

class PlugStormTest : public ConcurrencyTest {
  protected:
    int32_t Plug(const std::string& entry, const FakeDevice& device) {
        const std::lock_guard<std::mutex> lock(tree_mutex_);
        return tree_->AddDevice(entry, device);
    }
    void Unplug(const std::string& entry) {
        const std::lock_guard<std::mutex> lock(tree_mutex_);
        tree_->Remove(entry);
    }

  private:
    std::mutex tree_mutex_;  // the tree builder is nobody's idea of thread-safe
};

// What a decision's own rebuild found may be replaced by another's, but never by one that began
// before the device was there: else a refused device would be left switched on.
TEST_F(PlugStormTest, ARefusedDeviceIsSwitchedOffWhateverTheOthersDo) {
    LoadPolicy(kEmptyWhitelist);
    const std::array<FakeDevice, 4> kinds = {FlashDrive(), SerialAdapter(), VendorHidDongle(),
                                             CompositeDock()};
    std::vector<std::function<void()>> bodies;
    for (int i = 0; i < kThreads; ++i) {
        bodies.push_back([&, i] {
            const std::string entry = "1-" + std::to_string(i + 1);
            const FakeDevice& device = kinds[static_cast<size_t>(i) % kinds.size()];
            for (int plug = 0; plug < kPlugs; ++plug) {
                const DeviceInfo info = UsbInfo(Plug(entry, device), device);
                EXPECT_FALSE(Judge(info));
                ASSERT_EQ(Authorized(entry, device), std::string(device.interfaces.size(), '0'));
                Unplug(entry);
                ReportRemoved(info);
            }
        });
    }
    RunTogether(bodies);
}

// The categories in a record are what the decision itself found, too.
TEST_F(PlugStormTest, ARecordHasTheCategoriesOfItsDeviceWhateverTheOthersDo) {
    LoadPolicy("<usbconfig mode=\"default\"/>");
    const std::array<std::pair<FakeDevice, int32_t>, 4> kinds = {{
            {FlashDrive(), kCategoryStorage},
            {SerialAdapter(), kCategoryTty},
            {VendorHidDongle(), kCategoryVendorHid},
            {CompositeDock(),
             kCategoryNetwork + kCategoryTty + kCategoryStorage + kCategoryVendorHid},
    }};
    std::vector<std::function<void()>> bodies;
    for (int i = 0; i < kThreads; ++i) {
        bodies.push_back([&, i] {
            const std::string entry = "1-" + std::to_string(i + 1);
            const auto& [device, category] = kinds[static_cast<size_t>(i) % kinds.size()];
            for (int plug = 0; plug < kPlugs; ++plug) {
                const DeviceInfo info = UsbInfo(Plug(entry, device), device);
                EXPECT_TRUE(Judge(info));
                const std::optional<DeviceInfo> record = Find(info.deviceId);
                ASSERT_TRUE(record.has_value());
                ASSERT_EQ(record->category, category) << record->categoryPath;
                Unplug(entry);
                ReportRemoved(info);
            }
        });
    }
    RunTogether(bodies);
    UsbDevice::create_usb_device_map();
    EXPECT_TRUE(UsbDevice::deviceid_map.empty());
}

}  // namespace
}  // namespace android::vus
