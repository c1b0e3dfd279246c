// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "tests/support/usb_tree.h"
#include "tests/support/world.h"

namespace android::vus::workbench {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<Device> ReadTree(const std::string& dir) {
    std::vector<Device> devices;
    EXPECT_EQ(readTree(dir, [&devices](Device device) { devices.push_back(std::move(device)); }),
              "");
    return devices;
}

class TreeTest : public testing::Test {
  protected:
    void SetUp() override {
        EmptyWorld();
        tree_.emplace("/data/desk/sys");
    }

    std::optional<UsbTree> tree_;
};

TEST_F(TreeTest, HasItsDevicesWithTheirInterfacesInOrder) {
    tree_->AddDevice("1-2", {0x0951, 1, "", ""}, 5);
    tree_->AddInterface("1-2", 10, {0xff});
    tree_->AddInterface("1-2", 0, {8});
    tree_->AddInterface("1-2", 2, {3});
    for (const char* dir : {"/data/desk", "/data/desk/sys", "/data/desk/sys/"}) {
        const std::vector<Device> devices = ReadTree(dir);
        ASSERT_EQ(devices.size(), 1u);
        EXPECT_EQ(devices[0].id, 1005);
        EXPECT_EQ(devices[0].name, "0951:0001");
        EXPECT_THAT(devices[0].claim.interfaceClasses, ElementsAre(8, 3, 255));
        EXPECT_EQ(devices[0].vendorHid, false);
    }
}

TEST_F(TreeTest, TellsAVendorsHidByWhatIsBelowItsInterface) {
    tree_->AddDevice("1-3", VendorHidDongle());
    EXPECT_EQ(ReadTree("/data/desk")[0].vendorHid, true);
    MakeDir(tree_->Path("1-3:1.0", "0003:1050:0407.0002/input/input3"));
    EXPECT_EQ(ReadTree("/data/desk")[0].vendorHid, false);
}

TEST_F(TreeTest, LeavesOutHubsAndWhatHasGone) {
    tree_->AddBus(1);
    tree_->AddDevice("1-4", {0x17e9, 1, "", "", {}, 9});
    MakeDir(tree_->Path("1-5"));
    EXPECT_THAT(ReadTree("/data/desk"), IsEmpty());
    tree_->AddInterface("1-4", 0, {9});
    tree_->AddInterface("1-4", 1, {0xff});
    EXPECT_EQ(ReadTree("/data/desk").size(), 1u);
}

TEST_F(TreeTest, HasInputDevicesWithTheirSources) {
    const std::string input = "/data/desk/sys/class/input/input7/";
    WriteFile(input + "name",
              "Key\x1b"
              "board\n");
    WriteFile(input + "id/vendor", "046d\n");
    WriteFile(input + "id/product", "c31c\n");
    WriteFile(input + "capabilities/ev", "120013\n");
    // The keys of an ordinary keyboard, and no more.
    WriteFile(input + "capabilities/key",
              "1000000000007 ff9f207ac14057ff febeffdfffefffff fffffffffffffffe\n");
    WriteFile("/data/desk/sys/class/input/input8/name", "Lid Switch\n");
    const std::vector<Device> devices = ReadTree("/data/desk");
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].type, DeviceType::kInput);
    EXPECT_EQ(devices[0].id, 7);
    EXPECT_EQ(devices[0].claim.deviceClass, 0x101);
    EXPECT_EQ(devices[0].claim.vendorId, 0x46d);
    EXPECT_EQ(devices[0].name, "Key?board");
}

TEST_F(TreeTest, OfNoMachineIsSaid) {
    EXPECT_EQ(readTree("/data/no\x1b", [](const Device&) {}),
              "/data/no?: holds no sysfs: neither bus/usb/devices nor class/input is there");
}

}  // namespace
}  // namespace android::vus::workbench
