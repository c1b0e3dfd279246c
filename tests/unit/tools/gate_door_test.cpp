// SPDX-License-Identifier: Apache-2.0
//
// The door: shut before anything comes, for hubs only while nobody is there, and opened for good.

#include "tests/unit/tools/gate_fixture.h"
#include "tools/hotplug/sysfs_paths.h"

namespace android::vus::hotplug {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(GateTest, DoorIsShutBeforeRootHubsAreBound) {
    kernel_.hubs = {"usb1"};
    kernel_.bound = {{"usb1", false}, {"1-0:1.0", false}};
    gate_.shut();
    EXPECT_THAT(kernel_.switched, ElementsAre(std::string(kUsbAutoprobeFile) + " off",
                                              std::string(kHidAutoprobeFile) + " off",
                                              "usb1 default off", "usb1 probed", "1-0:1.0 on"));
    EXPECT_THAT(Tried(), ElementsAre("hub 1-0:1.0"));
    gate_.root_hub("usb1");
    gate_.root_hub("usb9");  // has gone
    EXPECT_THAT(Tried(), IsEmpty());
    EXPECT_THAT(notices_, IsEmpty());
}

TEST_F(GateTest, WhatCannotBeShutIsSaidOnceAndShutWhenItComes) {
    kernel_.has_hid_bus = false;
    gate_.shut();
    gate_.driver_came();
    EXPECT_THAT(notices_, ElementsAre("the door is not shut by /sys/bus/hid/drivers_autoprobe: "
                                      "No such file or directory"));
    kernel_.has_hid_bus = true;
    kernel_.switched.clear();
    gate_.driver_came();
    gate_.driver_came();
    EXPECT_THAT(kernel_.switched, ElementsAre(std::string(kHidAutoprobeFile) + " off"));
}

// Its event may come before that of the driver that brought the bus.
TEST_F(GateTest, BusThatComesWithItsFirstDeviceIsShutThen) {
    kernel_.has_hid_bus = false;
    gate_.shut();
    kernel_.has_hid_bus = true;
    kernel_.other_hid = {{kBluetoothKeyboard, true}};
    kernel_.switched.clear();
    gate_.admit_hid(kBluetoothKeyboard);
    EXPECT_THAT(kernel_.switched, ElementsAre(std::string(kHidAutoprobeFile) + " off"));
}

// An older one: what comes has its interfaces on, and no driver all the same.
TEST_F(GateTest, BusesOfAKernelWithoutTheDefaultWork) {
    kernel_.has_interface_default = false;
    kernel_.interfaces_on = true;
    kernel_.hubs = {"usb1", "usb2"};
    kernel_.bound = {{"usb1", false}, {"1-0:1.0", false}, {"usb2", false}, {"2-0:1.0", false}};
    gate_.shut();
    EXPECT_THAT(Tried(), ElementsAre("hub 1-0:1.0", "hub 2-0:1.0"));
    EXPECT_THAT(notices_, ElementsAre("the door is not shut by interface_authorized_default: "
                                      "No such file or directory"));
    gate_.root_hub("usb9");  // has gone
    EXPECT_THAT(Tried(), IsEmpty());
    Plug({{0, Disk()}});
    EXPECT_TRUE(Admit().held);
    EXPECT_THAT(Tried(), IsEmpty());
}

TEST_F(GateTest, HubIsBoundByTheHubsDriverAlone) {
    Plug({{0, {9, {"hub", "ftdi_sio"}}}});
    EXPECT_FALSE(gate_.admit(kPlugged, /*anybody_there=*/false).held);
    EXPECT_THAT(Tried(), ElementsAre("hub 1-1:1.0"));
    Plug({{0, {9, {"ftdi_sio"}}}});
    EXPECT_TRUE(Admit().held);
    EXPECT_THAT(Tried(), ElementsAre("hub 1-1:1.0"));
    EXPECT_FALSE(Of(0).authorized);
}

TEST_F(GateTest, HubThatCannotBeSwitchedOnIsLetInByTheNextLook) {
    Plug({{0, {9, {"hub"}}}});
    kernel_.stuck = {"1-1:1.0"};
    EXPECT_TRUE(Admit().unread);
    EXPECT_THAT(Tried(), IsEmpty());
    kernel_.stuck = {};
    EXPECT_FALSE(Admit().unread);
    EXPECT_EQ(Of(0).driver, "hub");
}

TEST_F(GateTest, WhatGoesWhileTheHubsDriverIsTriedIsNothing) {
    Plug({{0, {9, {"ftdi_sio"}}}});
    kernel_.after_attempt = [this] { kernel_.devices.erase(kPlugged.name); };
    EXPECT_FALSE(Admit().unread);
    EXPECT_THAT(Tried(), ElementsAre("hub 1-1:1.0"));
}

// It would be open to any driver that comes while the hub's is at it.
TEST_F(GateTest, WhatGivesNoHubsDescriptorIsNotSwitchedOnAsAHub) {
    Plug({{0, {9, {"hub"}}}});
    kernel_.devices[kPlugged.name].hub_descriptor = false;
    EXPECT_TRUE(Admit().held);
    EXPECT_THAT(Tried(), IsEmpty());
    EXPECT_THAT(kernel_.switched, IsEmpty());
}

TEST_F(GateTest, HubThatCannotBeAskedIsBoundAllTheSame) {
    Plug({{0, {9, {"hub"}}}});
    kernel_.devices[kPlugged.name].hub_descriptor.reset();
    Admit();
    EXPECT_THAT(Tried(), ElementsAre("hub 1-1:1.0"));
}

TEST_F(GateTest, NothingButHubsComesInWhileNobodyIsThere) {
    preview_.classes = {kDiskClass};
    Plug({{0, Disk()}});
    gate_.admit(kPlugged, /*anybody_there=*/false);
    EXPECT_THAT(Tried(), IsEmpty());
    Admit();
    EXPECT_THAT(Tried(), ElementsAre("usb-storage 1-1:1.0"));
}

TEST_F(GateTest, EverythingIsOpenedForGood) {
    kernel_.hubs = {"usb1"};
    kernel_.bound = {{"usb1", false}, {"1-0:1.0", false}};
    kernel_.other_hid = {{kBluetoothKeyboard, false}};
    gate_.shut();
    Plug({{0, Disk()}, {1, Keyboard()}});
    Admit();
    Tried();
    kernel_.silent = {"input5"};
    gate_.open_everything();
    EXPECT_THAT(switches_.Take(), ElementsAre("open device 1-1", "unhush input5"));
    EXPECT_THAT(Tried(),
                ElementsAre("usb-storage 1-1:1.0", "usbhid 1-1:1.1",
                            std::string("hid ") + kBluetoothKeyboard, "hid 0003:1209:0011.0001"));
    EXPECT_THAT(kernel_.switched, testing::IsSupersetOf({std::string(kUsbAutoprobeFile) + " on",
                                                         std::string(kHidAutoprobeFile) + " on",
                                                         std::string("usb1 default on")}));
}

}  // namespace
}  // namespace android::vus::hotplug
