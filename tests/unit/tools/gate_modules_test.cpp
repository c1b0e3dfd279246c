// SPDX-License-Identifier: Apache-2.0
//
// Drivers that are tried unasked: by their own modules as they are loaded, or by the kernel after a
// reset.

#include "tests/unit/tools/gate_fixture.h"

namespace android::vus::hotplug {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(GateTest, InputDeviceThatWaitsForHidsDriverIsOpenToNoOther) {
    preview_.sources = {kSourceKeyboard};
    kernel_.drivers = {"hub"};
    Plug({{0, Keyboard()}});
    Of(0).takers.emplace_back("ftdi_sio");
    EXPECT_FALSE(Admit().held);
    kernel_.load_pushing("ftdi_sio");
    EXPECT_THAT(Tried(), IsEmpty());
    EXPECT_FALSE(Of(0).authorized);
    kernel_.drivers = {"hub", kHidDriver};
    EXPECT_FALSE(Admit().held);
    EXPECT_THAT(Tried(), ElementsAre("usbhid 1-1:1.0", "hid 0003:1209:0011.0001"));
}

// Its disk may keep the kernel busy for long.
TEST_F(GateTest, InputDeviceIsOpenToNoOtherDriverWhileItsNeighbourGetsIts) {
    preview_.classes = {kDiskClass};
    preview_.sources = {kSourceKeyboard};
    Plug({{0, Disk()}, {1, Keyboard()}});
    Of(1).takers.emplace_back("pushing");
    kernel_.after_attempt = [this] { kernel_.load_pushing("pushing"); };
    EXPECT_FALSE(Admit().held);
    EXPECT_THAT(Tried(),
                ElementsAre("usb-storage 1-1:1.0", "usbhid 1-1:1.1", "hid 0003:1209:0011.0001"));
}

// The module waits for HID's driver to be done with the device.
TEST_F(GateTest, WhatHidsDriverDoesNotTakeIsTakenFromADriverThatWaitedForThat) {
    preview_.sources = {kSourceKeyboard};
    Plug({{0, Keyboard()}});
    Of(0).takers = {"pushing"};
    kernel_.after_attempt = [this] { kernel_.load_pushing("pushing"); };
    EXPECT_TRUE(Admit().held);
    EXPECT_EQ(Of(0).driver, "");
    EXPECT_FALSE(Of(0).authorized);
}

TEST_F(GateTest, DriverForWholeDevicesLosesWhatItTakesOfARefusedOne) {
    Plug({{0, Disk()}});
    EXPECT_TRUE(Admit().held);
    kernel_.load_for_devices("charger", "1-1");
    EXPECT_THAT(Tried(), ElementsAre("charger 1-1"));
    const Admission admission = Admit();
    EXPECT_TRUE(admission.held && admission.is_question);
    EXPECT_EQ(kernel_.driver_of("1-1"), "");
    EXPECT_THAT(notices_, ElementsAre("took 1-1 from charger: it is not let in"));
    // What the daemon says is said of the interfaces that it was asked about.
    gate_.answered(kPlugged, true);
    gate_.open_interfaces(kPlugged);
    EXPECT_THAT(Tried(), ElementsAre("charger 1-1", "usb-storage 1-1:1.0"));
    EXPECT_FALSE(Admit().held);
    gate_.answered(kPlugged, false);
    gate_.close_interfaces(kPlugged);
    EXPECT_EQ(kernel_.driver_of("1-1"), "");
    EXPECT_TRUE(Admit().held);
    EXPECT_EQ(kernel_.driver_of("1-1"), "");
}

TEST_F(GateTest, DriverForWholeDevicesKeepsWhatItTakesOfAnAllowedOne) {
    preview_.classes = {kDiskClass};
    Plug({{0, Disk()}});
    Admit();
    Tried();
    kernel_.load_for_devices("charger", "1-1");
    EXPECT_FALSE(Admit().held);
    EXPECT_THAT(Tried(), ElementsAre("charger 1-1", "usb-storage 1-1:1.0"));
    EXPECT_EQ(kernel_.driver_of("1-1"), "charger");
    // What has drivers loses them by the daemon's word.
    preview_.classes = {};
    gate_.policy_changed();
    EXPECT_TRUE(Admit().held);
    EXPECT_EQ(kernel_.driver_of("1-1"), "charger");
}

TEST_F(GateTest, DriverForWholeDevicesKeepsAHub) {
    Plug({{0, {9, {"hub"}}}});
    Admit();
    kernel_.load_for_devices("onboard", "1-1");
    Admit();
    gate_.close_interfaces(kPlugged);
    EXPECT_EQ(kernel_.driver_of("1-1"), "onboard");
    EXPECT_EQ(Of(0).driver, "hub");
}

TEST_F(GateTest, DriverForWholeDevicesKeepsWhatMayBeAHubUntilThatCanBeTold) {
    Plug({{0, {9, {"hub"}}}});
    Admit();
    kernel_.load_for_devices("onboard", "1-1");
    Admit();
    kernel_.devices["1-1"].is_unread = true;
    EXPECT_FALSE(gate_.close_interfaces(kPlugged)) << "it is to be done again";
    EXPECT_EQ(kernel_.driver_of("1-1"), "onboard");
    EXPECT_THAT(notices_, IsEmpty());
    Plug({{0, Disk()}});
    Admit();
    kernel_.load_for_devices("charger", "1-1");
    kernel_.devices["1-1"].is_unread = true;
    EXPECT_FALSE(gate_.close_interfaces(kPlugged));
    EXPECT_EQ(kernel_.driver_of("1-1"), "charger");
    kernel_.devices["1-1"].is_unread = false;
    EXPECT_TRUE(gate_.close_interfaces(kPlugged));
    EXPECT_EQ(kernel_.driver_of("1-1"), "");
}

TEST_F(GateTest, DeviceWithoutInterfacesThatAnotherDriverHasIsAQuestionOfItsMaker) {
    Plug({});
    kernel_.load_for_devices("charger", "1-1");
    kernel_.devices["1-1"].driver = "charger";
    EXPECT_TRUE(Admit().held);
    EXPECT_EQ(kernel_.driver_of("1-1"), "");
}

TEST_F(GateTest, DeviceThatADriverForWholeDevicesDoesNotWantIsConfigured) {
    preview_.vendors = {0x1209};
    Plug({{0, Disk()}});
    kernel_.devices["1-1"].own_driver = "charger";
    kernel_.devices["1-1"].is_declined = true;
    EXPECT_FALSE(Admit().held);
    EXPECT_THAT(Tried(), ElementsAre("charger 1-1", "usb-storage 1-1:1.0"));
}

TEST_F(GateTest, InputDeviceThatComesOfAResetAsAnotherIsAskedAgain) {
    preview_.sources = {kSourceMouse};
    Plug({{0, {kHidClass, {kHidDriver}, kBootMouse, /*has_input=*/true}}});
    EXPECT_THAT(Admit().inputs, IsEmpty());
    Of(0).report = kBootKeyboard;
    kernel_.rebind("1-1:1.0", kHidDriver);
    Tried();
    const Admission admission = Admit();
    ASSERT_EQ(admission.inputs.size(), 1U);
    EXPECT_EQ(admission.inputs[0].info.deviceClass, kSourceKeyboard);
    EXPECT_THAT(Tried(), IsEmpty());
    EXPECT_FALSE(Of(0).authorized);
}

TEST_F(GateTest, YesIsOfWhatTheInputDeviceWasBeforeItsReset) {
    preview_.knows_nothing = true;
    Plug({{0, {kHidClass, {kHidDriver}, kBootMouse, /*has_input=*/true}}});
    const HeldInput mouse = Admit().inputs.at(0);
    gate_.answered(mouse.subject, true, mouse.incarnation);
    gate_.open_held(mouse.usb_device, mouse.behind);
    EXPECT_EQ(Of(0).driver, kHidDriver);
    Of(0).report = kBootKeyboard;
    kernel_.rebind("1-1:1.0", kHidDriver);
    EXPECT_EQ(Admit().inputs.size(), 1U);
    EXPECT_EQ(Of(0).driver, "");
}

TEST_F(GateTest, InputDeviceThatComesOfAResetAsItWasComesIn) {
    preview_.sources = {kSourceKeyboard};
    Plug({{0, Keyboard()}});
    Admit();
    kernel_.rebind("1-1:1.0", kHidDriver);
    Tried();
    EXPECT_THAT(Admit().inputs, IsEmpty());
    EXPECT_THAT(Tried(), ElementsAre("usbhid 1-1:1.0", "hid 0003:1209:0011.0003"));
    EXPECT_THAT(Admit().inputs, IsEmpty());
    EXPECT_THAT(Tried(), IsEmpty());
    // With no driver at all, too.
    kernel_.rebind("1-1:1.0", "none");
    Tried();
    EXPECT_THAT(Admit().inputs, IsEmpty());
    EXPECT_THAT(Tried(), ElementsAre("usbhid 1-1:1.0", "hid 0003:1209:0011.0004"));
}

TEST_F(GateTest, InputDeviceIsTakenFromADriverThatGotItByAReset) {
    preview_.sources = {kSourceKeyboard};
    Plug({{0, Keyboard()}});
    Admit();
    Of(0).takers = {"ftdi_sio"};
    kernel_.rebind("1-1:1.0", "ftdi_sio");
    EXPECT_EQ(Of(0).driver, "ftdi_sio");
    gate_.admit(kPlugged, /*anybody_there=*/false);
    EXPECT_EQ(Of(0).driver, "");
    EXPECT_FALSE(Of(0).authorized);
    EXPECT_THAT(notices_, ElementsAre("took 1-1:1.0 from ftdi_sio: it was HID's"));
    Tried();
    Of(0).takers = {kHidDriver};
    Admit();
    EXPECT_THAT(Tried(), ElementsAre("usbhid 1-1:1.0", "hid 0003:1209:0011.0002"));
}

TEST_F(GateTest, InputDeviceThatCannotBeTakenFromADriverIsTakenLater) {
    preview_.sources = {kSourceKeyboard};
    Plug({{0, Keyboard()}});
    Admit();
    Of(0).takers = {"ftdi_sio"};
    kernel_.rebind("1-1:1.0", "ftdi_sio");
    kernel_.stuck = {"1-1:1.0"};
    EXPECT_TRUE(Admit().incomplete);
    kernel_.stuck = {};
    Admit();
    EXPECT_EQ(Of(0).driver, "");
}

TEST_F(GateTest, InputDeviceThatWasThereBeforeIsTakenFromAnotherDriverAsWell) {
    Plug({{0, Keyboard()}});
    kernel_.interfaces_on = true;
    kernel_.probe("1-1");
    kernel_.probe("1-1:1.0");
    kernel_.probe_hid("0003:1209:0011.0001");
    Admit();
    Of(0).takers = {"ftdi_sio"};
    kernel_.rebind("1-1:1.0", "ftdi_sio");
    gate_.admit(kPlugged, /*anybody_there=*/false);
    EXPECT_EQ(Of(0).driver, "");
}

// Such as a touchpad's; and who has the node of a device may claim it.
TEST_F(GateTest, DriverThatIsTheInterfacesOwnKeepsItWhileNobodyIsThere) {
    preview_.vendors = {0x1209};
    kernel_.drivers.emplace_back("touchpad");
    Plug({{0, {kHidClass, {"touchpad"}, kBootMouse}}, {1, Keyboard()}});
    Admit();
    EXPECT_EQ(Of(0).driver, "touchpad");
    Of(1).takers = {kNodeDriver};
    kernel_.rebind("1-1:1.1", kNodeDriver);
    gate_.admit(kPlugged, /*anybody_there=*/false);
    EXPECT_EQ(Of(0).driver, "touchpad");
    EXPECT_EQ(Of(1).driver, kNodeDriver);
}

}  // namespace
}  // namespace android::vus::hotplug
