// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/world.h"
#include "tools/workbench/redact.h"

namespace android::vus::workbench {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kTreeDevices = "/data/desk/sys/bus/usb/devices/";

void AddTreeDevice(const std::string& name, const std::string& number, const std::string& vendor) {
    const std::string device = kTreeDevices + name + "/";
    WriteFile(device + "busnum", "1\n");
    WriteFile(device + "devnum", number + "\n");
    WriteFile(device + "idVendor", vendor + "\n");
    WriteFile(device + "idProduct", "0001\n");
    WriteFile(device + "bDeviceClass", "00\n");
}

std::string AddTreeInterface(const std::string& device, const std::string& number,
                             const std::string& code) {
    const std::string interface = kTreeDevices + device + "/" + device + ":1." + number + "/";
    WriteFile(interface + "bInterfaceNumber", number + "\n");
    WriteFile(interface + "bInterfaceClass", code + "\n");
    return interface;
}

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
        MakeDir(kTreeDevices);
    }
};

TEST_F(TreeTest, HasItsDevicesWithTheirInterfacesInOrder) {
    AddTreeDevice("1-2", "5", "0951");
    AddTreeInterface("1-2", "0a", "ff");
    AddTreeInterface("1-2", "00", "08");
    AddTreeInterface("1-2", "02", "03");
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
    AddTreeDevice("1-3", "6", "1050");
    const std::string interface = AddTreeInterface("1-3", "00", "03");
    MakeDir(interface + "0003:1050:0407.0001/hidraw");
    EXPECT_EQ(ReadTree("/data/desk")[0].vendorHid, true);
    MakeDir(interface + "0003:1050:0407.0001/input/input3");
    EXPECT_EQ(ReadTree("/data/desk")[0].vendorHid, false);
}

TEST_F(TreeTest, LeavesOutHubsAndWhatHasGone) {
    AddTreeDevice("usb1", "1", "1d6b");
    AddTreeInterface("usb1", "00", "09");
    AddTreeDevice("1-4", "7", "17e9");
    WriteFile(kTreeDevices + "1-4/bDeviceClass", "09\n");
    MakeDir(kTreeDevices + "1-5");
    EXPECT_THAT(ReadTree("/data/desk"), IsEmpty());
    AddTreeInterface("1-4", "00", "09");
    AddTreeInterface("1-4", "01", "ff");
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

TEST(Redaction, ReplacesWhatTellsWhoseADeviceIs) {
    Redaction redaction;
    Device device;
    device.claim.vendorId = 1;
    device.name = device.productName = "Ann's phone";
    device.serial = "A1";
    const Device first = redaction.of(device);
    EXPECT_EQ(first.name, "name 1");
    EXPECT_EQ(first.productName, "name 1");
    EXPECT_EQ(first.serial, "serial 1");
    EXPECT_EQ(first.vendorName, "");
    EXPECT_EQ(first.claim.vendorId, 1);
    device.serial = "A2";
    EXPECT_EQ(redaction.of(device).name, "name 1");
    EXPECT_EQ(redaction.of(device).serial, "serial 2");
}

}  // namespace
}  // namespace android::vus::workbench
