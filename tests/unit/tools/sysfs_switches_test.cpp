// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/sysfs_switches.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "tests/support/usb_tree.h"
#include "tests/support/world.h"

namespace android::vus::hotplug {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kHidDevice[] = "0003:0627:0001.0001";
const Subject kDock = {"1-2", 1005};

class SysfsSwitchesTest : public testing::Test {
  protected:
    void SetUp() override {
        EmptyWorld();
        tree_.emplace().AddDevice("1-2", {0x17e9, 0x6006, "", "Dock", {{8}, {8}}}, 5);
        WriteFile("/sys/bus/usb/drivers_probe", "");
        WriteFile("/sys/bus/hid/drivers_probe", "");
    }

    static void Attribute(const std::string& path, const std::string& value) {
        WriteFile(UsbPath(path), value);
    }
    static void CannotBeRead(const std::string& path) {
        RemoveTree(UsbPath(path));
        MakeDir(UsbPath(path));
    }
    static std::vector<std::string> Authorized() {
        return {ReadFile(UsbPath("1-2", "authorized")), ReadFile(UsbPath("1-2:1.0", "authorized")),
                ReadFile(UsbPath("1-2:1.1", "authorized"))};
    }

    std::optional<UsbTree> tree_;
    std::vector<std::string> complaints_;
    SysfsSwitches switches_{[this](const std::string& line) { complaints_.push_back(line); }};
};

TEST_F(SysfsSwitchesTest, InterfacesThatAreOnAreClosed) {
    switches_.close_interfaces(kDock);
    EXPECT_THAT(Authorized(), ElementsAre("1\n", "0\n", "0\n"));
    Attribute("1-2:1.0/authorized", "0\n");
    Attribute("1-2:1.1/authorized", "1\n");
    switches_.close_interfaces(kDock);
    EXPECT_THAT(Authorized(), ElementsAre("1\n", "0\n", "0\n"));
    EXPECT_THAT(complaints_, IsEmpty());
}

TEST_F(SysfsSwitchesTest, SilenceIsToldOnlyIfTheKernelTookIt) {
    std::vector<std::string> told;
    SysfsSwitches switches([](const std::string&) {},
                           [&told](const std::string& input, bool silent) {
                               told.push_back(input + (silent ? " silent" : " heard"));
                           });
    WriteFile("/sys/class/input/input5/inhibited", "0\n");
    WriteFile("/sys/class/input/input6/name", "of an older kernel\n");
    switches.hush_input("input5");
    switches.hush_input("input6");
    switches.hush_input("input7");
    switches.unhush_input("input5");
    EXPECT_THAT(told, ElementsAre("input5 silent", "input5 heard"));
}

TEST_F(SysfsSwitchesTest, DeviceThatHasBecomeAnotherIsLeftAlone) {
    const Subject before = {"1-2", 1004};
    switches_.close_interfaces(before);
    switches_.open_interfaces(before);
    switches_.close_device(before);
    switches_.close_interfaces({"1-9", 1009});
    EXPECT_THAT(Authorized(), ElementsAre("1\n", "1\n", "1\n"));
    EXPECT_THAT(complaints_, IsEmpty());
}

TEST_F(SysfsSwitchesTest, HubIsLeftAlone) {
    tree_->Bind("1-2:1.0", "hub");
    tree_->Bind("1-2:1.1", "hub");
    switches_.close_interfaces(kDock);
    EXPECT_THAT(Authorized(), ElementsAre("1\n", "1\n", "1\n"));
}

TEST_F(SysfsSwitchesTest, OnlyPartlyAHubIsClosed) {
    tree_->Bind("1-2:1.0", "hub");
    switches_.close_interfaces(kDock);
    EXPECT_THAT(Authorized(), ElementsAre("1\n", "0\n", "0\n"));
}

// It would take away everything behind it.
TEST_F(SysfsSwitchesTest, HubThatCannotBeReadIsLeftAlone) {
    tree_->Bind("1-2:1.0", "hub");
    tree_->Bind("1-2:1.1", "hub");
    CannotBeRead("1-2:1.1/bInterfaceClass");
    EXPECT_FALSE(switches_.close_interfaces(kDock)) << "it may be another thing as well";
    EXPECT_THAT(Authorized(), ElementsAre("1\n", "1\n", "1\n"));
    RemoveTree(UsbPath("1-2:1.1/bInterfaceClass"));
    Attribute("1-2:1.1/bInterfaceClass", "09\n");
    EXPECT_TRUE(switches_.close_interfaces(kDock));
    EXPECT_THAT(Authorized(), ElementsAre("1\n", "1\n", "1\n"));
    EXPECT_THAT(complaints_, IsEmpty());
}

TEST_F(SysfsSwitchesTest, WhatIsNoHubOfADeviceThatCannotBeReadIsClosed) {
    tree_->Bind("1-2:1.0", "hub");
    tree_->Bind("1-2:1.1", "usb-storage");
    CannotBeRead("1-2:1.0/bInterfaceClass");
    EXPECT_FALSE(switches_.close_interfaces(kDock));
    EXPECT_THAT(Authorized(), ElementsAre("1\n", "1\n", "0\n"));
    // Whatever it says of itself: the driver tells.
    Attribute("1-2:1.1/bInterfaceClass", "09\n");
    Attribute("1-2:1.1/authorized", "1\n");
    EXPECT_FALSE(switches_.close_interfaces(kDock));
    EXPECT_THAT(Authorized(), ElementsAre("1\n", "1\n", "0\n"));
    // It is refused as a whole, and that is seen to when it can be.
    RemoveTree(UsbPath("1-2:1.0/bInterfaceClass"));
    Attribute("1-2:1.0/bInterfaceClass", "09\n");
    EXPECT_TRUE(switches_.close_interfaces(kDock));
    EXPECT_THAT(Authorized(), ElementsAre("1\n", "0\n", "0\n"));
}

// Ports are what the hub's driver has told the kernel of.
TEST_F(SysfsSwitchesTest, InterfaceWhoseDriverCannotBeToldIsClosedUnlessTheDeviceHasPorts) {
    CannotBeRead("1-2:1.0/driver");  // which is no link
    EXPECT_TRUE(switches_.close_interfaces(kDock));
    EXPECT_THAT(Authorized(), ElementsAre("1\n", "0\n", "0\n"));
    Attribute("1-2/maxchild", "7\n");
    for (const char* interface : {"1-2:1.0/authorized", "1-2:1.1/authorized"}) {
        Attribute(interface, "1\n");
    }
    EXPECT_FALSE(switches_.close_interfaces(kDock));
    EXPECT_THAT(Authorized(), ElementsAre("1\n", "1\n", "0\n")) << "the other has no driver";
}

TEST_F(SysfsSwitchesTest, InterfacesAreOpenedAndTheirDriversLookedFor) {
    Attribute("1-2:1.1/authorized", "0\n");
    switches_.open_interfaces(kDock);
    EXPECT_THAT(Authorized(), ElementsAre("1\n", "1\n", "1\n"));
    EXPECT_EQ(ReadFile("/sys/bus/usb/drivers_probe"), "1-2:1.1");
}

TEST_F(SysfsSwitchesTest, DeviceIsSwitchedAsAWhole) {
    switches_.close_device(kDock);
    EXPECT_THAT(Authorized(), ElementsAre("0\n", "1\n", "1\n"));
    switches_.open_device(kDock);
    EXPECT_THAT(Authorized(), ElementsAre("1\n", "1\n", "1\n"));
}

TEST_F(SysfsSwitchesTest, SwitchThatCannotBeSetIsSaid) {
    RemoveFile(UsbPath("1-2:1.0", "authorized"));
    MakeDir(UsbPath("1-2:1.0", "authorized"));
    switches_.close_interfaces(kDock);
    EXPECT_THAT(complaints_, ElementsAre("cannot switch 1-2:1.0/authorized: Is a directory"));
    EXPECT_EQ(Authorized()[2], "0\n") << "the next one is closed all the same";
}

TEST_F(SysfsSwitchesTest, InputDeviceIsHushed) {
    WriteFile("/sys/class/input/input5/inhibited", "0\n");
    switches_.hush_input("input5");
    EXPECT_EQ(ReadFile("/sys/class/input/input5/inhibited"), "1\n");
    switches_.unhush_input("input5");
    EXPECT_EQ(ReadFile("/sys/class/input/input5/inhibited"), "0\n");
    switches_.hush_input("input6");  // has gone
    EXPECT_THAT(complaints_, IsEmpty());
}

TEST_F(SysfsSwitchesTest, InputDeviceThatCannotBeHeardIsTold) {
    WriteFile("/sys/class/input/input5/inhibited", "1\n");
    EXPECT_TRUE(switches_.unhush_input("input5"));
    EXPECT_TRUE(switches_.unhush_input("input6")) << "it has gone";
    MakeDir("/sys/class/input/input7");
    EXPECT_TRUE(switches_.unhush_input("input7")) << "an older kernel did not silence it either";
    complaints_.clear();
    MakeDir("/sys/class/input/input8/inhibited");  // which cannot be written
    EXPECT_FALSE(switches_.unhush_input("input8"));
    EXPECT_THAT(complaints_, ElementsAre("cannot switch /sys/class/input/input8/inhibited"));
}

TEST_F(SysfsSwitchesTest, KernelThatCannotHushIsSaid) {
    MakeDir("/sys/class/input/input5");
    switches_.hush_input("input5");
    EXPECT_THAT(complaints_, ElementsAre("cannot switch /sys/class/input/input5/inhibited"));
}

TEST_F(SysfsSwitchesTest, HidDeviceLosesItsDriverAndGetsItBack) {
    WriteFile(std::string("/sys/bus/hid/devices/") + kHidDevice + "/driver/unbind", "");
    EXPECT_TRUE(switches_.unbind_hid(kHidDevice));
    EXPECT_EQ(ReadFile(std::string("/sys/bus/hid/devices/") + kHidDevice + "/driver/unbind"),
              kHidDevice);
    switches_.probe_hid(kHidDevice);
    EXPECT_EQ(ReadFile("/sys/bus/hid/drivers_probe"), kHidDevice);
    EXPECT_FALSE(switches_.unbind_hid("0003:0627:0001.0002"));
    EXPECT_THAT(complaints_, IsEmpty());
}

}  // namespace
}  // namespace android::vus::hotplug
