// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/sysfs_gate.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/usb_tree.h"
#include "tests/support/world.h"
#include "tools/hotplug/sysfs_paths.h"

namespace android::vus::hotplug {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kHidEntry[] = "/sys/bus/hid/devices/0005:046D:B342.0003";

class SysfsGateTest : public testing::Test {
  protected:
    void SetUp() override {
        EmptyWorld();
        UsbTree tree;
        tree.AddBus(1);
        stick_ = {"1-2", tree.AddDevice("1-2", FlashDrive())};
        WriteFile(UsbPath("1-2", "busnum"), "1\n");
        WriteFile(kUsbProbeFile, "");
    }

    Subject stick_;
    SysfsGate gate_;
};

TEST_F(SysfsGateTest, SwitchesAreWritten) {
    WriteFile(kUsbAutoprobeFile, "1\n");
    EXPECT_TRUE(gate_.set_autoprobe(kUsbAutoprobeFile, false));
    EXPECT_EQ(ReadFile(kUsbAutoprobeFile).substr(0, 1), "0");
    EXPECT_FALSE(gate_.set_autoprobe(kHidAutoprobeFile, false));
    EXPECT_EQ(errno, ENOENT);
    WriteFile(UsbPath("usb1", kInterfaceDefault), "1\n");
    EXPECT_TRUE(gate_.set_interface_default("usb1", false));
    EXPECT_EQ(ReadFile(UsbPath("usb1", kInterfaceDefault)).substr(0, 1), "0");
    EXPECT_FALSE(gate_.set_interface_default("usb7", false));
}

TEST_F(SysfsGateTest, FindsWhatThereIs) {
    EXPECT_THAT(gate_.root_hubs(), ElementsAre("usb1"));
    EXPECT_TRUE(gate_.is_there("usb1"));
    EXPECT_FALSE(gate_.is_there("usb7"));
    ASSERT_THAT(gate_.usb_devices(), SizeIs(1));
    EXPECT_EQ(gate_.usb_devices()[0].key(), stick_.key());
    EXPECT_THAT(gate_.hid_devices(), IsEmpty());
    MakeDir(kHidEntry);
    EXPECT_THAT(gate_.hid_devices(), ElementsAre("0005:046D:B342.0003"));
}

TEST_F(SysfsGateTest, NothingIsDoneToAnotherDevice) {
    const Subject before = {"1-2", stick_.number + 1};
    const std::string authorized = UsbPath("1-2:1.0", "authorized");
    WriteFile(authorized, "0\n");
    EXPECT_FALSE(gate_.authorize(before, 0, "1-2:1.0", true));
    EXPECT_EQ(ReadFile(authorized), "0\n");
    EXPECT_FALSE(gate_.identity(before));
    EXPECT_THAT(gate_.interfaces(before).value(), IsEmpty());
    EXPECT_EQ(gate_.incarnation(before), 0U);
    EXPECT_NE(gate_.incarnation(stick_), 0U);
    EXPECT_EQ(gate_.incarnation(stick_), gate_.incarnation(stick_));
    const uint64_t itself = gate_.incarnation(stick_).value();
    EXPECT_FALSE(gate_.authorize(stick_, itself + 1, "1-2:1.0", true));
    EXPECT_EQ(ReadFile(authorized), "0\n") << "another one with the same number";
    EXPECT_TRUE(gate_.authorize(stick_, itself, "1-2:1.0", true));
    EXPECT_EQ(ReadFile(authorized), "1\n");
    EXPECT_EQ(gate_.identity(stick_)->vendorId, FlashDrive().vendor);
    EXPECT_THAT(gate_.interfaces(stick_).value(), SizeIs(1));
}

TEST_F(SysfsGateTest, OneDriverIsTriedByItsName) {
    EXPECT_EQ(gate_.bind("usbhid", "1-2:1.0"), GateSystem::Bound::kNoSuchDriver);
    const std::string file = std::string(kUsbDriversDir) + "/usbhid/bind";
    WriteFile(file, "");
    RemoveFile(UsbPath("1-2:1.0", "driver"));
    EXPECT_EQ(gate_.bind("usbhid", "1-2:1.0"), GateSystem::Bound::kNo);
    EXPECT_EQ(ReadFile(file), "1-2:1.0");
    EXPECT_EQ(ReadFile(kUsbProbeFile), "") << "the others are not";
    EXPECT_FALSE(gate_.has_driver("1-2:1.0"));
    std::filesystem::create_symlink(std::string(kUsbDriversDir) + "/usbhid",
                                    UsbPath("1-2:1.0", "driver"));
    EXPECT_EQ(gate_.bind("usbhid", "1-2:1.0"), GateSystem::Bound::kYes);
    EXPECT_TRUE(gate_.has_driver("1-2:1.0"));
}

TEST_F(SysfsGateTest, DriverLosesTheDeviceThatIsMeant) {
    const std::string file = std::string(kUsbDriversDir) + "/charger/unbind";
    WriteFile(file, "");
    EXPECT_EQ(gate_.driver_of("1-2"), kDeviceDriver);
    RemoveFile(UsbPath("1-2", "driver"));
    EXPECT_EQ(gate_.driver_of("1-2"), "");
    std::filesystem::create_symlink(std::string(kUsbDriversDir) + "/charger",
                                    UsbPath("1-2", "driver"));
    EXPECT_EQ(gate_.driver_of("1-2"), "charger");
    gate_.unbind("charger", {"1-2", stick_.number + 1});
    EXPECT_EQ(ReadFile(file), "");
    gate_.unbind("charger", stick_);
    EXPECT_EQ(ReadFile(file), "1-2");
}

TEST_F(SysfsGateTest, DeviceWithoutANodeTellsNothing) {
    EXPECT_EQ(gate_.tells_hub({"1-2", 255127}), std::nullopt);
    EXPECT_FALSE(gate_.report_descriptor({"1-2", 255127}, gate_.interfaces(stick_).value().at(0)));
}

TEST_F(SysfsGateTest, HidDeviceIsCalledByItsCleanName) {
    WriteFile(std::string(kHidEntry) + "/uevent",
              "HID_ID=0005:0000046D:0000B342\nHID_NAME=Key\x1b board\nHID_PHYS=\n");
    EXPECT_EQ(gate_.hid_label("0005:046D:B342.0003"), "Key? board");
    EXPECT_EQ(gate_.hid_label("0005:046D:B342.0004"), "");
    EXPECT_FALSE(gate_.hid_has_driver("0005:046D:B342.0003"));
    MakeDir(std::string(kHidEntry) + "/driver");
    EXPECT_TRUE(gate_.hid_has_driver("0005:046D:B342.0003"));
}

TEST_F(SysfsGateTest, HidDeviceShowsItsReportDescriptor) {
    EXPECT_THAT(gate_.hid_report_descriptor("0005:046D:B342.0003"), testing::IsEmpty());
    WriteFile(std::string(kHidEntry) + "/report_descriptor", "\x05\x01");
    EXPECT_THAT(gate_.hid_report_descriptor("0005:046D:B342.0003"), ElementsAre(5, 1));
}

TEST_F(SysfsGateTest, InputDevicesOfBusesAreToldFromTheBoards) {
    const std::string devices = "/sys/devices/";
    const auto link = [&](const std::string& name, const std::string& path) {
        MakeDir(devices + path);
        MakeDir(kInputClassDir);
        std::filesystem::create_symlink(devices + path, std::string(kInputClassDir) + "/" + name);
    };
    link("input0", "platform/usb_keys/input/input0");
    link("input1", "pci0/usb3/3-1/3-1:1.0/sound/card1/input1");
    link("input2", "virtual/misc/uhid/0005:046D:B342.0003/input/input2");
    EXPECT_FALSE(gate_.is_of_a_bus("input0"));
    EXPECT_TRUE(gate_.is_of_a_bus("input1"));
    EXPECT_TRUE(gate_.is_of_a_bus("input2"));
    EXPECT_FALSE(gate_.is_of_a_bus("input3"));
    WriteFile(std::string(kInputClassDir) + "/input0/inhibited", "0\n");
    WriteFile(std::string(kInputClassDir) + "/input1/inhibited", "1\n");
    EXPECT_THAT(gate_.silent_inputs(), ElementsAre("input1"));
}

}  // namespace
}  // namespace android::vus::hotplug
