// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/device_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/world.h"
#include "tools/hotplug/usb_entry.h"

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

    static std::optional<DeviceInfo> ReadUsb(const std::string& entry) {
        return read_usb_device({entry, usb_number(entry)}).info;
    }

    static void Bind(const std::string& entry, const std::string& driver) {
        for (const std::string& at : {entry, entry.substr(0, entry.find(':')) + "/" + entry}) {
            MakeDir("/sys/bus/usb/devices/" + at);
            std::filesystem::create_symlink("../../drivers/" + driver,
                                            "/sys/bus/usb/devices/" + at + "/driver");
        }
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
    const auto info = ReadUsb("2-1.4");
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
    EXPECT_THAT(ReadUsb("2-1")->interfaceClassList, ElementsAre(8));
}

TEST_F(DeviceReaderTest, InterfaceThatWentWhileItWasListedIsLeftOut) {
    AddDevice("2-1", "00\n");
    AddInterface("2-1", 1, "08\n");
    MakeDir("/sys/bus/usb/devices/2-1/2-1:1.0");
    EXPECT_THAT(ReadUsb("2-1")->interfaceClassList, ElementsAre(8));
}

TEST_F(DeviceReaderTest, DeviceWithoutProductTextIsCalledByItsIds) {
    AddDevice("2-1", "00\n");
    EXPECT_EQ(ReadUsb("2-1")->deviceName, "0951:1666");
    Attribute("2-1", "product", " \n");
    EXPECT_EQ(ReadUsb("2-1")->deviceName, "0951:1666");
}

TEST_F(DeviceReaderTest, NameIsPrintableWhateverTheDeviceSays) {
    AddDevice("2-1", "00\n");
    Attribute("2-1", "product", "Stick\n   Device status: 1\x1b[2J\xff\n");
    EXPECT_EQ(ReadUsb("2-1")->deviceName, "Stick?   Device status: 1?[2J\xEF\xBF\xBD");
}

TEST_F(DeviceReaderTest, DeviceThatHasGoneIsNothing) {
    EXPECT_FALSE(ReadUsb("2-1"));
    MakeDir("/sys/bus/usb/devices/2-1");
    EXPECT_FALSE(ReadUsb("2-1"));
}

TEST_F(DeviceReaderTest, HubIsWhatTheHubDriverServes) {
    AddDevice("2-1", "09\n");
    EXPECT_TRUE(ReadUsb("2-1"));
    AddInterface("2-1", 0, "09\n");
    EXPECT_THAT(ReadUsb("2-1")->interfaceClassList, ElementsAre(9));
    Bind("2-1:1.0", "hub");
    EXPECT_FALSE(ReadUsb("2-1"));
    AddInterface("2-1", 1, "09\n");
    EXPECT_TRUE(ReadUsb("2-1"));
    Bind("2-1:1.1", "ftdi_sio");
    EXPECT_THAT(ReadUsb("2-1")->interfaceClassList, ElementsAre(9, 9));
}

TEST_F(DeviceReaderTest, InterfaceThatOnlyClaimsToBeHidIsItsVendorsOwn) {
    AddDevice("2-1", "00\n");
    for (int number : {0, 1, 2}) AddInterface("2-1", number, "03\n");
    Bind("2-1:1.0", "usbhid");
    Bind("2-1:1.1", "ftdi_sio");
    EXPECT_THAT(ReadUsb("2-1")->interfaceClassList, ElementsAre(3, 255, 3));
}

TEST_F(DeviceReaderTest, HidDeviceWithoutDriverHasNotSettled) {
    AddDevice("2-1", "00\n");
    AddInterface("2-1", 0, "03\n");
    Bind("2-1:1.0", "usbhid");
    const auto settled = [] { return read_usb_device({"2-1", 2017}).settled; };
    EXPECT_TRUE(settled());
    const std::string hid = "2-1:1.0/0003:0951:1666.0001";
    MakeDir("/sys/bus/usb/devices/" + hid);
    EXPECT_FALSE(settled());
    std::filesystem::create_symlink("../../drivers/hid-generic",
                                    "/sys/bus/usb/devices/" + hid + "/driver");
    EXPECT_TRUE(settled());
    // One more is nothing yet, but the first is its vendor's own.
    MakeDir("/sys/bus/usb/devices/2-1:1.0/0003:0951:1666.0002");
    EXPECT_TRUE(settled());
    MakeDir("/sys/bus/usb/devices/" + hid + "/input");
    EXPECT_FALSE(settled());
    // Beside another class there is something to judge in any case.
    AddInterface("2-1", 1, "08\n");
    EXPECT_TRUE(settled());
}

TEST_F(DeviceReaderTest, ShapeTellsDriversApart) {
    AddDevice("2-1", "00\n");
    AddInterface("2-1", 0, "03\n");
    const auto shape = [] { return read_usb_device({"2-1", 2017}).shape; };
    const std::string bare = shape();
    EXPECT_EQ(shape(), bare);
    Bind("2-1:1.0", "usbhid");
    const std::string bound = shape();
    EXPECT_NE(bound, bare);
    MakeDir("/sys/bus/usb/devices/2-1:1.0/0003:0951:1666.0001");
    const std::string with_hid = shape();
    EXPECT_NE(with_hid, bound);
    MakeDir("/sys/bus/usb/devices/2-1:1.0/0003:0951:1666.0001/input");
    EXPECT_NE(shape(), with_hid);
}

TEST_F(DeviceReaderTest, DeviceThatHasBecomeAnotherIsNothing) {
    AddDevice("2-1", "00\n");
    EXPECT_TRUE(read_usb_device({"2-1", 2017}).info);
    EXPECT_FALSE(read_usb_device({"2-1", 2016}).info);
}

TEST_F(DeviceReaderTest, DeviceThatOnlyClaimsToBeHubIsRead) {
    AddDevice("2-1", "09\n");
    AddInterface("2-1", 0, "09\n");
    AddInterface("2-1", 1, "08\n");
    const auto info = ReadUsb("2-1");
    ASSERT_TRUE(info);
    EXPECT_THAT(info->interfaceClassList, ElementsAre(9, 8));
}

TEST_F(DeviceReaderTest, DeviceWithoutInterfacesIsRead) {
    AddDevice("2-1", "00\n");
    const auto info = ReadUsb("2-1");
    ASSERT_TRUE(info);
    EXPECT_THAT(info->interfaceClassList, IsEmpty());
}

TEST_F(DeviceReaderTest, InputDeviceWithoutNodeIsNothing) {
    EXPECT_FALSE(read_input_device("input5", "event3").info);
}

TEST_F(DeviceReaderTest, InputNodeThatIsNoEventNodeIsNothing) {
    WriteFile("/dev/input/event3", "not a device");
    EXPECT_FALSE(read_input_device("input5", "event3").info);
    RemoveTree("/dev/input");
}

}  // namespace
}  // namespace android::vus::hotplug
