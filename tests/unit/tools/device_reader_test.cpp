// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/device_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <errno.h>
#include <libevdev/libevdev.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/support/faulty_call.h"
#include "tests/support/usb_tree.h"
#include "tests/support/world.h"
#include "tools/hotplug/sysfs_switches.h"
#include "tools/hotplug/usb_entry.h"

namespace android::vus::hotplug {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DeviceReaderTest : public testing::Test {
  protected:
    void SetUp() override {
        EmptyWorld();
        tree_.emplace();
    }

    // Without interfaces, as device 17 of its bus.
    void AddDevice(const std::string& entry, int32_t device_class) {
        tree_->AddDevice(entry, {0x0951, 0x1666, "", "", {}, device_class}, 17);
    }
    void AddInterface(const std::string& device, int number, int32_t code) {
        tree_->AddInterface(device, number, {code});
    }

    static std::optional<DeviceInfo> ReadUsb(const std::string& entry) {
        return read_usb_device({entry, usb_number(entry)}).info;
    }

    // Whatever a device is judged by.
    static auto AllOf(const DeviceInfo& info) {
        return std::tie(info.deviceName, info.deviceId, info.deviceClass, info.interfaceClassList,
                        info.vendorId, info.productId, info.deviceType);
    }

    std::optional<UsbTree> tree_;
};

TEST(HidNameTest, NumberHasAsManyDigitsAsItNeeds) {
    for (const char* name : {"0003:046D:C31C.0001", "0003:046D:C31C.FFFF", "0003:046D:C31C.10000",
                             "0005:046d:c31c.FFFFFFFF"}) {
        EXPECT_TRUE(is_hid_name(name)) << name;
    }
    for (const char* name : {"", "0003", "0003:046D:C31C", "0003:046D:C31C.", "0003:046D:C31C.001",
                             "0003:046D:C31C.1000G", "0003:046D:C31C.0001:1.0",
                             "0003:046D:C31C.0001 ", "1-2:1.0", "supplier:platform:soc"}) {
        EXPECT_FALSE(is_hid_name(name)) << name;
    }
}

TEST_F(DeviceReaderTest, DeviceIsReadWithItsInterfacesInTheirOrder) {
    AddDevice("2-1.4", 0xef);
    WriteFile(UsbPath("2-1.4", "product"), "Dock\n");
    AddInterface("2-1.4", 2, 0xff);
    AddInterface("2-1.4", 0, 8);
    AddInterface("2-1.4", 1, 3);
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
    AddDevice("2-1", 0);
    AddInterface("2-1", 0, 8);
    WriteFile(UsbPath("2-1/2-1.4", "bInterfaceClass"), "01\n");  // a device behind it
    WriteFile(UsbPath("2-1/ep_00", "bInterfaceClass"), "01\n");
    EXPECT_THAT(ReadUsb("2-1")->interfaceClassList, ElementsAre(8));
}

TEST_F(DeviceReaderTest, InterfaceThatWentWhileItWasListedIsLeftOut) {
    AddDevice("2-1", 0);
    AddInterface("2-1", 1, 8);
    MakeDir(UsbPath("2-1", "2-1:1.0"));
    EXPECT_THAT(ReadUsb("2-1")->interfaceClassList, ElementsAre(8));
}

TEST_F(DeviceReaderTest, DeviceWithoutProductTextIsCalledByItsIds) {
    AddDevice("2-1", 0);
    EXPECT_EQ(ReadUsb("2-1")->deviceName, "0951:1666");
    WriteFile(UsbPath("2-1", "product"), " \n");
    EXPECT_EQ(ReadUsb("2-1")->deviceName, "0951:1666");
}

// It would be told as another device, and told as this one again.
TEST_F(DeviceReaderTest, DeviceWhoseNameCannotBeReadIsUnread) {
    AddDevice("2-1", 0);
    RemoveFile(UsbPath("2-1", "product"));
    MakeDir(UsbPath("2-1", "product"));
    const Sighting seen = read_usb_device({"2-1", 2017});
    EXPECT_TRUE(seen.unread);
    EXPECT_FALSE(seen.info);
}

TEST_F(DeviceReaderTest, NameIsPrintableWhateverTheDeviceSays) {
    AddDevice("2-1", 0);
    WriteFile(UsbPath("2-1", "product"), "Stick\n   Device status: 1\x1b[2J\xff\n");
    EXPECT_EQ(ReadUsb("2-1")->deviceName, "Stick?   Device status: 1?[2J\xEF\xBF\xBD");
}

TEST_F(DeviceReaderTest, DeviceThatHasGoneIsNothing) {
    EXPECT_FALSE(ReadUsb("2-1"));
    MakeDir(UsbPath("2-1"));
    EXPECT_FALSE(ReadUsb("2-1"));
}

TEST_F(DeviceReaderTest, HubIsWhatTheHubDriverServes) {
    AddDevice("2-1", 9);
    EXPECT_TRUE(ReadUsb("2-1"));
    AddInterface("2-1", 0, 9);
    EXPECT_THAT(ReadUsb("2-1")->interfaceClassList, ElementsAre(9));
    tree_->Bind("2-1:1.0", "hub");
    EXPECT_FALSE(ReadUsb("2-1"));
    AddInterface("2-1", 1, 9);
    EXPECT_TRUE(ReadUsb("2-1"));
    tree_->Bind("2-1:1.1", "ftdi_sio");
    EXPECT_THAT(ReadUsb("2-1")->interfaceClassList, ElementsAre(9, 9));
}

TEST_F(DeviceReaderTest, InterfaceThatOnlyClaimsToBeHidIsItsVendorsOwn) {
    AddDevice("2-1", 0);
    for (int number : {0, 1, 2}) AddInterface("2-1", number, 3);
    tree_->Bind("2-1:1.0", "usbhid");
    tree_->Bind("2-1:1.1", "ftdi_sio");
    EXPECT_THAT(ReadUsb("2-1")->interfaceClassList, ElementsAre(3, 255, 3));
}

TEST_F(DeviceReaderTest, HidDeviceWithoutDriverHasNotSettled) {
    AddDevice("2-1", 0);
    AddInterface("2-1", 0, 3);
    tree_->Bind("2-1:1.0", "usbhid");
    const auto settled = [] { return read_usb_device({"2-1", 2017}).settled; };
    EXPECT_TRUE(settled());
    const std::string hid = "2-1:1.0/0003:0951:1666.0001";
    MakeDir(UsbPath(hid));
    EXPECT_FALSE(settled());
    std::filesystem::create_symlink("../../drivers/hid-generic", UsbPath(hid, "driver"));
    EXPECT_TRUE(settled());
    // One more is nothing yet, but the first is its vendor's own.
    MakeDir(UsbPath("2-1:1.0", "0003:0951:1666.0002"));
    EXPECT_TRUE(settled());
    MakeDir(UsbPath(hid, "input"));
    EXPECT_FALSE(settled());
    // Beside another class there is something to judge in any case.
    AddInterface("2-1", 1, 8);
    EXPECT_TRUE(settled());
}

TEST_F(DeviceReaderTest, ShapeTellsDriversApart) {
    AddDevice("2-1", 0);
    AddInterface("2-1", 0, 3);
    const auto shape = [] { return read_usb_device({"2-1", 2017}).shape; };
    const std::string bare = shape();
    EXPECT_EQ(shape(), bare);
    tree_->Bind("2-1:1.0", "usbhid");
    const std::string bound = shape();
    EXPECT_NE(bound, bare);
    MakeDir(UsbPath("2-1:1.0", "0003:0951:1666.0001"));
    const std::string with_hid = shape();
    EXPECT_NE(with_hid, bound);
    MakeDir(UsbPath("2-1:1.0", "0003:0951:1666.0001/input"));
    EXPECT_NE(shape(), with_hid);
}

TEST_F(DeviceReaderTest, DeviceIsOffIfAllOfItIs) {
    AddDevice("2-1", 0);
    AddInterface("2-1", 0, 8);
    AddInterface("2-1", 1, 8);
    const auto is_off = [] { return read_usb_device({"2-1", 2017}).off; };
    WriteFile(UsbPath("2-1:1.0", "authorized"), "0\n");
    WriteFile(UsbPath("2-1:1.1", "authorized"), "1\n");
    EXPECT_FALSE(is_off());
    WriteFile(UsbPath("2-1:1.1", "authorized"), "0\n");
    EXPECT_TRUE(is_off());
    RemoveFile(UsbPath("2-1:1.1", "authorized"));
    EXPECT_FALSE(is_off()) << "the kernel cannot switch it";
}

TEST_F(DeviceReaderTest, NumberIsOfDevicesAlone) {
    AddDevice("2-1", 0);
    AddInterface("2-1", 0, 8);
    WriteFile(UsbPath("2-1:1.0", "devnum"), "9\n");
    WriteFile(UsbPath("usb2", "devnum"), "1\n");
    EXPECT_EQ(usb_number("2-1"), 2017);
    for (const char* other : {"2-1:1.0", "usb2", "input5", "0003:046D:C31C.0001", "2-2", ""}) {
        EXPECT_EQ(usb_number(other), 0) << other;
    }
}

TEST_F(DeviceReaderTest, DeviceThatHasBecomeAnotherIsNothing) {
    AddDevice("2-1", 0);
    EXPECT_TRUE(read_usb_device({"2-1", 2017}).info);
    EXPECT_FALSE(read_usb_device({"2-1", 2016}).info);
}

TEST_F(DeviceReaderTest, DeviceThatOnlyClaimsToBeHubIsRead) {
    AddDevice("2-1", 9);
    AddInterface("2-1", 0, 9);
    AddInterface("2-1", 1, 8);
    const auto info = ReadUsb("2-1");
    ASSERT_TRUE(info);
    EXPECT_THAT(info->interfaceClassList, ElementsAre(9, 8));
}

TEST_F(DeviceReaderTest, DeviceWithoutInterfacesIsRead) {
    AddDevice("2-1", 0);
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

// A built-in one that its driver cannot open, such as a touchscreen that is off, is left alone.
TEST_F(DeviceReaderTest, InputNodeThatCannotBeReadIsUnreadIfItCameOfABus) {
    MakeDir("/dev/input");
    std::filesystem::create_symlink("event3", "/dev/input/event3");  // too many links, says open()
    WriteFile("/dev/input/event4", "this can be opened, and does not answer");
    for (const auto& [parent, unread] :
         {std::pair("/sys/devices/soc/1-2/1-2:1.0/0003:0627:0001.0001/input", true),
          std::pair("/sys/devices/platform/panel/input", false)}) {
        MakeDir(std::string(parent) + "/input5");
        RemoveTree("/sys/class/input");
        MakeDir("/sys/class/input");
        std::filesystem::create_directory_symlink(std::string(parent) + "/input5",
                                                  "/sys/class/input/input5");
        for (const char* event : {"event3", "event4"}) {
            const Sighting seen = read_input_device("input5", event);
            EXPECT_EQ(seen.unread, unread) << parent << " " << event;
            EXPECT_FALSE(seen.info);
        }
    }
    RemoveTree("/dev/input");
}

// As the kernel shows one that came of a HID device, or is the board's own.
class InputSightingTest : public testing::Test {
  protected:
    void SetUp() override {
        EmptyWorld();
        const std::string hid = "/sys/devices/platform/usb1/1-2/1-2:1.0/" + std::string(kHid);
        Show("input5", hid + "/input/input5");
        std::filesystem::create_symlink(hid, hid + "/input/input5/device");
        Show("input6", "/sys/devices/platform/lid/input/input6");
    }
    static void Show(const std::string& input, const std::string& path) {
        MakeDir(path);
        MakeDir("/sys/class/input");
        std::filesystem::create_symlink(path, "/sys/class/input/" + input);
    }
    void Has(unsigned type, unsigned code) {
        const input_absinfo place = {};
        libevdev_enable_event_code(device_.get(), type, code, type == EV_ABS ? &place : nullptr);
    }
    Sighting See(const std::string& input) { return sighting_of_input(input, device_.get()); }

    static constexpr char kHid[] = "0003:1209:0011.0001";
    std::unique_ptr<libevdev, void (*)(libevdev*)> device_{libevdev_new(), libevdev_free};
};

TEST_F(InputSightingTest, SwitchIsNothing) {
    Has(EV_SW, SW_LID);
    EXPECT_FALSE(See("input5").info);
    EXPECT_FALSE(See("input6").info);
}

TEST_F(InputSightingTest, PointerWithoutALeftButtonIsAMouse) {
    Has(EV_KEY, BTN_RIGHT);
    Has(EV_REL, REL_X);
    Has(EV_REL, REL_Y);
    const Sighting seen = See("input5");
    ASSERT_TRUE(seen.info);
    EXPECT_EQ(seen.info->deviceClass, 0x2002);
    EXPECT_EQ(seen.hid_device, kHid);
    EXPECT_FALSE(See("input6").info) << "no rule could name the board's own";
}

// A refusal of it alone is not to take away what it came with.
TEST_F(InputSightingTest, WhatIsNoSourceButCouldActIsAskedAboutIfItWasPluggedIn) {
    Has(EV_ABS, ABS_VOLUME);
    const Sighting seen = See("input5");
    ASSERT_TRUE(seen.info);
    EXPECT_EQ(seen.info->deviceClass, 0);
    EXPECT_EQ(seen.info->deviceType, 1);
    EXPECT_EQ(seen.info->deviceId, 5);
    EXPECT_EQ(seen.hid_device, "");
    EXPECT_FALSE(See("input6").info);
}

TEST_F(InputSightingTest, BoardsOwnKeysAreAskedAbout) {
    Has(EV_KEY, KEY_POWER);
    const Sighting seen = See("input6");
    ASSERT_TRUE(seen.info);
    EXPECT_EQ(seen.info->deviceClass, 0x101);
    EXPECT_EQ(seen.hid_device, "");
}

// What is switched behind it would be in nobody's order.
TEST_F(InputSightingTest, InputDeviceOfAUsbDeviceWithoutANumberIsUnread) {
    Has(EV_KEY, KEY_A);
    const std::string devnum = UsbPath("1-2", "devnum");
    WriteFile(devnum, "5\n");
    const Sighting seen = See("input5");
    EXPECT_FALSE(seen.unread);
    EXPECT_EQ(seen.hid_device, kHid);
    EXPECT_EQ(seen.usb_device.key(), "1005");
    RemoveFile(devnum);
    MakeDir(devnum);
    EXPECT_TRUE(See("input5").unread);
    EXPECT_FALSE(See("input6").unread) << "it is nobody's";
    RemoveTree(UsbPath("1-2"));
    EXPECT_FALSE(See("input5").unread) << "it has gone";
}

// A device of which something could not be read would be another device: one of no vendor, or one
// with fewer interfaces, which stays on.
TEST_F(DeviceReaderTest, WithoutMeansForAMomentADeviceIsReadAsItIs) {
    tree_->AddDevice("2-1", CompositeDock(), 17);
    const Subject dock = {"2-1", usb_number("2-1")};
    const Sighting whole = read_usb_device(dock);
    ASSERT_TRUE(whole.info);
    for (const int error : {EMFILE, ENOMEM}) {
        int n = 0;
        std::optional<int> failed;
        do {
            SCOPED_TRACE("call " + std::to_string(++n) + ": " + strerror(error));
            Sighting seen;
            failed = FaultyCall::run(n, error, [&] { seen = read_usb_device(dock); });
            ASSERT_TRUE(seen.info);
            EXPECT_EQ(AllOf(*seen.info), AllOf(*whole.info));
            EXPECT_EQ(seen.layout, whole.layout);
            EXPECT_EQ(seen.shape, whole.shape);
            EXPECT_EQ(seen.settled, whole.settled);
        } while (failed && !HasFailure());
        EXPECT_GT(n, 50);
    }
}

TEST_F(DeviceReaderTest, WithoutMeansForAMomentADeviceIsSwitchedOff) {
    int n = 0;
    std::optional<int> failed;
    do {
        SCOPED_TRACE("call " + std::to_string(++n));
        tree_.emplace();
        tree_->AddDevice("2-1", FlashDrive(), 17);
        const Subject drive = {"2-1", usb_number("2-1")};
        std::vector<std::string> complaints;
        SysfsSwitches switches(
                [&](const std::string& complaint) { complaints.push_back(complaint); });
        failed = FaultyCall::run(n, EMFILE, [&] { switches.close_interfaces(drive); });
        EXPECT_EQ(ReadFile(UsbPath("2-1:1.0", "authorized")).substr(0, 1), "0");
        EXPECT_THAT(complaints, IsEmpty());
    } while (failed && !HasFailure());
    EXPECT_GT(n, 10);
}

}  // namespace
}  // namespace android::vus::hotplug
