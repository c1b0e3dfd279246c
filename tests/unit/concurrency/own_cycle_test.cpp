// SPDX-License-Identifier: Apache-2.0
//
// What happens between a decision's own look at the USB tree and its refusal: rebuilds of others
// that fail, and another device at the judged one's port. The policy is held for as long as the
// test needs: a decision waits for it after it has looked.

#include <algorithm>
#include <filesystem>
#include <thread>

#include "android/vus/paths.h"
#include "android/vus/usbdevice.h"
#include "android/vus/util.h"
#include "tests/unit/concurrency/concurrency_fixture.h"

namespace android::vus {
namespace {

class OwnCycleTest : public ConcurrencyTest {
  protected:
    void SetUp() override {
        ConcurrencyTest::SetUp();
        serial_ = UsbInfo(tree_->AddDevice("1-1", SerialAdapter()), SerialAdapter());
        LoadPolicy(kEmptyWhitelist);
    }

    // Judges, and does something between the look at the tree and the verdict.
    void JudgeAndMeanwhile(const DeviceInfo& info, const std::function<void()>& meanwhile) {
        LogCapture log;
        std::thread decision;
        {
            const PolicyWriteLock policy;
            decision = std::thread([&] { EXPECT_FALSE(Judge(info)); });
            EXPECT_TRUE(Eventually(
                    [&] { return Says(&log, "create_usb_device_map returned check loop"); }));
            meanwhile();
        }
        decision.join();
        errors_ = log.Errors();
    }

    static bool Says(LogCapture* log, const std::string& line) {
        const std::vector<std::string> messages = log->Messages();
        return std::find(messages.begin(), messages.end(), line) != messages.end();
    }

    DeviceInfo serial_;
    std::vector<std::string> errors_;
};

TEST_F(OwnCycleTest, ARebuildOfOthersThatFailsDoesNotSaveARefusedDevice) {
    JudgeAndMeanwhile(serial_, [] {
        const std::string aside = std::string(kUsbDevicesDir) + ".aside";
        std::filesystem::rename(kUsbDevicesDir, aside);
        UsbDevice::create_usb_device_map();
        std::filesystem::rename(aside, kUsbDevicesDir);
        EXPECT_TRUE(UsbDevice::deviceid_map.empty());
    });
    EXPECT_EQ(Authorized("1-1", SerialAdapter()), "00");
}

TEST_F(OwnCycleTest, NorDoesAMapThatMissesIt) {
    JudgeAndMeanwhile(serial_, [&] { UsbDevice::update_deviceid_map(serial_.deviceId, false); });
    EXPECT_EQ(Authorized("1-1", SerialAdapter()), "00");
}

TEST_F(OwnCycleTest, TheRecordHasTheCategoriesThatTheDecisionFound) {
    JudgeAndMeanwhile(serial_, [&] { UsbDevice::update_deviceid_map(serial_.deviceId, false); });
    const std::optional<DeviceInfo> record = Find(serial_.deviceId);
    ASSERT_TRUE(record.has_value());
    EXPECT_EQ(record->category, kCategoryTty);
    EXPECT_NE(record->categoryPath.find("ttyACM0;"), std::string::npos) << record->categoryPath;
}

TEST_F(OwnCycleTest, ARefusalDoesNotHitAnotherDeviceAtTheSamePort) {
    int32_t other = 0;
    JudgeAndMeanwhile(serial_, [&] {
        tree_->Remove("1-1");
        other = tree_->AddDevice("1-1", SerialAdapter());
    });
    EXPECT_EQ(Authorized("1-1", SerialAdapter()), "11");
    ASSERT_EQ(errors_.size(), 1u);
    EXPECT_NE(errors_[0].find("belongs to deviceId " + std::to_string(other) + " by now"),
              std::string::npos)
            << errors_[0];
    // It is judged for itself.
    EXPECT_FALSE(Judge(UsbInfo(other, SerialAdapter())));
    EXPECT_EQ(Authorized("1-1", SerialAdapter()), "00");
}

}  // namespace
}  // namespace android::vus
