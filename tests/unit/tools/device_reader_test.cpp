// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/device_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/world.h"

namespace android::vus::hotplug {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DeviceReaderTest : public testing::Test {
  protected:
    void SetUp() override { EmptyWorld(); }

    static void Attribute(const std::string& entry, const std::string& name,
                          const std::string& value) {
        WriteFile("/sys/bus/usb/devices/" + entry + "/" + name, value);
    }

    static void AddDevice(const std::string& entry, const std::string& device_class) {
        Attribute(entry, "busnum", "2\n");
        Attribute(entry, "devnum", "17\n");
        Attribute(entry, "bDeviceClass", device_class);
        Attribute(entry, "idVendor", "0951\n");
        Attribute(entry, "idProduct", "1666\n");
    }

    static void AddInterface(const std::string& device, int number, const std::string& code) {
        const std::string interface = device + ":1." + std::to_string(number);
        for (const std::string& entry : {interface, device + "/" + interface}) {
            Attribute(entry, "bInterfaceNumber", "0" + std::to_string(number) + "\n");
            Attribute(entry, "bInterfaceClass", code);
        }
    }
};

TEST_F(DeviceReaderTest, DeviceIsReadWithItsInterfacesInTheirOrder) {
    AddDevice("2-1.4", "ef\n");
    Attribute("2-1.4", "product", "Dock\n");
    AddInterface("2-1.4", 2, "ff\n");
    AddInterface("2-1.4", 0, "08\n");
    AddInterface("2-1.4", 1, "03\n");
    const auto info = read_usb_device("2-1.4");
    ASSERT_TRUE(info);
    EXPECT_EQ(info->deviceName, "Dock");
    EXPECT_EQ(info->deviceId, 2017);
    EXPECT_EQ(info->deviceClass, 239);
    EXPECT_THAT(info->interfaceClassList, ElementsAre(8, 3, 255));
    EXPECT_EQ(info->vendorId, 0x951);
    EXPECT_EQ(info->productId, 0x1666);
    EXPECT_EQ(info->deviceType, 0);
    EXPECT_EQ(info->status, 0);
    EXPECT_EQ(info->reason, "");
}

TEST_F(DeviceReaderTest, InterfacesOfAnotherDeviceAreNotTaken) {
    AddDevice("2-1", "00\n");
    AddInterface("2-1", 0, "08\n");
    WriteFile("/sys/bus/usb/devices/2-1/2-1.4/bInterfaceClass", "01\n");  // a device behind it
    WriteFile("/sys/bus/usb/devices/2-1/ep_00/bInterfaceClass", "01\n");
    EXPECT_THAT(read_usb_device("2-1")->interfaceClassList, ElementsAre(8));
}

TEST_F(DeviceReaderTest, InterfaceThatWentWhileItWasListedIsLeftOut) {
    AddDevice("2-1", "00\n");
    AddInterface("2-1", 1, "08\n");
    MakeDir("/sys/bus/usb/devices/2-1/2-1:1.0");
    EXPECT_THAT(read_usb_device("2-1")->interfaceClassList, ElementsAre(8));
}

TEST_F(DeviceReaderTest, DeviceWithoutProductTextIsCalledByItsIds) {
    AddDevice("2-1", "00\n");
    EXPECT_EQ(read_usb_device("2-1")->deviceName, "0951:1666");
    Attribute("2-1", "product", " \n");
    EXPECT_EQ(read_usb_device("2-1")->deviceName, "0951:1666");
}

TEST_F(DeviceReaderTest, NameIsPrintableWhateverTheDeviceSays) {
    AddDevice("2-1", "00\n");
    Attribute("2-1", "product", "Stick\n   Device status: 1\x1b[2J\xff\n");
    EXPECT_EQ(read_usb_device("2-1")->deviceName, "Stick?   Device status: 1?[2J\xEF\xBF\xBD");
}

TEST_F(DeviceReaderTest, DeviceThatHasGoneIsNothing) {
    EXPECT_FALSE(read_usb_device("2-1"));
    MakeDir("/sys/bus/usb/devices/2-1");
    EXPECT_FALSE(read_usb_device("2-1"));
}

TEST_F(DeviceReaderTest, HubIsNothing) {
    AddDevice("2-1", "09\n");
    EXPECT_FALSE(read_usb_device("2-1"));
    AddInterface("2-1", 0, "09\n");
    EXPECT_FALSE(read_usb_device("2-1"));
}

TEST_F(DeviceReaderTest, DeviceThatOnlyClaimsToBeHubIsRead) {
    AddDevice("2-1", "09\n");
    AddInterface("2-1", 0, "09\n");
    AddInterface("2-1", 1, "08\n");
    const auto info = read_usb_device("2-1");
    ASSERT_TRUE(info);
    EXPECT_THAT(info->interfaceClassList, ElementsAre(9, 8));
}

TEST_F(DeviceReaderTest, DeviceWithoutInterfacesIsRead) {
    AddDevice("2-1", "00\n");
    const auto info = read_usb_device("2-1");
    ASSERT_TRUE(info);
    EXPECT_THAT(info->interfaceClassList, IsEmpty());
}

TEST_F(DeviceReaderTest, InputDeviceWithoutNodeIsNothing) {
    EXPECT_FALSE(read_input_device("input5", "event3"));
}

TEST_F(DeviceReaderTest, InputNodeThatIsNoEventNodeIsNothing) {
    WriteFile("/dev/input/event3", "not a device");
    EXPECT_FALSE(read_input_device("input5", "event3"));
    RemoveTree("/dev/input");
}

}  // namespace
}  // namespace android::vus::hotplug
