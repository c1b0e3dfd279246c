// SPDX-License-Identifier: Apache-2.0
//
// Who gets a driver, and who never does, before a kernel that does as the real one.

#include "tests/unit/tools/gate_fixture.h"

namespace android::vus::hotplug {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F(GateTest, RefusedDeviceNeverHasADriver) {
    Plug({{0, Disk()}});
    EXPECT_TRUE(Admit().held);
    EXPECT_TRUE(Admit().held);
    EXPECT_THAT(Tried(), IsEmpty());
    EXPECT_THAT(kernel_.switched, IsEmpty());
}

TEST_F(GateTest, AllowedDeviceIsOnAsAWholeBeforeItsFirstDriver) {
    preview_.classes = {2, 10};
    Plug({{0, {2, {"cdc_acm"}}}, {1, {10, {}}}});
    EXPECT_FALSE(Admit().held);
    EXPECT_THAT(kernel_.switched, ElementsAre("1-1:1.0 on", "1-1:1.1 on"));
    EXPECT_THAT(Tried(), ElementsAre("cdc_acm 1-1:1.0"));
}

TEST_F(GateTest, DriverForAWholeDeviceIsTriedOnWhatIsAllowedAlone) {
    preview_.classes = {kDiskClass};
    Plug({});
    kernel_.devices[kPlugged.name].own_driver = "charger";
    const Admission admission = Admit();
    EXPECT_TRUE(admission.held && admission.is_question && admission.identity);
    gate_.answered(kPlugged, false);
    EXPECT_TRUE(Admit().held);
    EXPECT_THAT(Tried(), IsEmpty());
    gate_.answered(kPlugged, true);
    gate_.open_interfaces(kPlugged);
    EXPECT_THAT(Tried(), ElementsAre("charger 1-1"));
    EXPECT_FALSE(Admit().held);

    Plug({});
    kernel_.devices[kPlugged.name].own_driver = "charger";
    kernel_.devices[kPlugged.name].incarnation = 2;
    preview_.vendors = {0x1209};
    EXPECT_FALSE(Admit().held);
    EXPECT_THAT(Tried(), ElementsAre("charger 1-1"));
}

TEST_F(GateTest, KeyboardIsKnownBeforeItHasADriver) {
    Plug({{0, Keyboard()}});
    const Admission refused = Admit();
    EXPECT_FALSE(refused.held || refused.is_question) << "it is the input side's";
    ASSERT_THAT(refused.inputs, SizeIs(1));
    const HeldInput& held = refused.inputs[0];
    EXPECT_EQ(held.behind, "1-1:1.0");
    EXPECT_EQ(held.info.deviceType, kInputType);
    EXPECT_EQ(held.info.deviceClass, kSourceKeyboard);
    EXPECT_EQ(held.info.vendorId, 0x1209);
    EXPECT_EQ(held.subject.key(), "input" + std::to_string(held.info.deviceId));
    EXPECT_THAT(Tried(), IsEmpty());
    EXPECT_FALSE(Of(0).authorized);

    preview_.sources = {kSourceKeyboard};
    const Admission allowed = Admit();
    EXPECT_THAT(allowed.inputs, IsEmpty());
    EXPECT_THAT(KeysOf(allowed.released), ElementsAre(held.subject.key()));
    EXPECT_THAT(Tried(), ElementsAre("usbhid 1-1:1.0", "hid 0003:1209:0011.0001"));
}

TEST_F(GateTest, KeyboardThatBecomesNoneIsAQuestionOfTheUsbSide) {
    preview_.sources = {kSourceKeyboard};
    Plug({{0, Keyboard()}});
    EXPECT_FALSE(Admit().is_question);
    Of(0).hid->has_input_device = false;
    EXPECT_TRUE(Admit().is_question);
}

TEST_F(GateTest, OneRefusedApplicationKeepsItsInterfaceOut) {
    Plug({{0, Keyboard()}});
    Of(0).report = kBootMouse + Bytes("8502") + kBootKeyboard;
    preview_.sources = {kSourceMouse};
    const Admission admission = Admit();
    ASSERT_THAT(admission.inputs, SizeIs(1));
    EXPECT_EQ(admission.inputs[0].info.deviceClass, kSourceKeyboard);
    EXPECT_THAT(Tried(), IsEmpty());
}

// A yes lets all of them in.
TEST_F(GateTest, DaemonIsAskedAboutEveryApplicationThatIsNotForeseen) {
    Plug({{0, Keyboard()}});
    Of(0).report = kBootMouse + Bytes("8502") + kBootKeyboard;
    preview_.knows_nothing = true;
    const Admission admission = Admit();
    ASSERT_THAT(admission.inputs, SizeIs(1));
    EXPECT_EQ(admission.inputs[0].info.deviceClass, kSourceMouse | kSourceKeyboard);
}

TEST_F(GateTest, VendorsOwnIsJudgedOnTheUsbSide) {
    Plug({{0, Programmer()}});
    const Admission refused = Admit();
    EXPECT_TRUE(refused.held && refused.is_question);
    EXPECT_THAT(refused.vendor, ElementsAre("1-1:1.0"));
    EXPECT_THAT(preview_.claims.back().interfaceClasses, ElementsAre(kVendorSpecificClass));
    EXPECT_THAT(Tried(), IsEmpty());
    EXPECT_FALSE(Of(0).authorized);
    preview_.vendors = {0x1209};
    EXPECT_FALSE(Admit().held);
    EXPECT_THAT(Tried(), ElementsAre("usbhid 1-1:1.0", "hid 0003:1209:0011.0001"));
}

// The input side is never asked about it, so that the USB side has to be.
TEST_F(GateTest, InputDeviceThatIsTheSourceOfNothingIsItsVendorsOwn) {
    for (const auto& report : {kMouseInNameOnly, kAxesWithoutButtons}) {
        Plug({{0, {kHidClass, {kHidDriver}, report}}});
        const Admission admission = Admit();
        EXPECT_TRUE(admission.held && admission.is_question);
        EXPECT_THAT(admission.vendor, ElementsAre("1-1:1.0"));
        EXPECT_THAT(Tried(), IsEmpty());
        EXPECT_FALSE(Of(0).authorized);
        gate_.forget(kPlugged);
    }
}

TEST_F(GateTest, RideAlongKeyboardIsJudgedByItself) {
    preview_.classes = {kDiskClass};
    Plug({{0, Disk()}, {1, Keyboard()}});
    const Admission admission = Admit();
    EXPECT_FALSE(admission.held);
    EXPECT_THAT(admission.inputs, SizeIs(1));
    EXPECT_THAT(Tried(), ElementsAre("usb-storage 1-1:1.0"));
    EXPECT_FALSE(Of(1).authorized);
}

TEST_F(GateTest, WhatRidesAlongWithListedClassesStaysShutIfSoWished) {
    Gate gate{&kernel_, &switches_, &preview_, [](const std::string&) {},
              Gate::Composites::kInPart};
    preview_.classes = {kDiskClass};
    Plug({{0, Disk()}, {1, {kVendorSpecificClass, {"ftdi_sio"}}}, {2, Programmer()}});
    EXPECT_FALSE(gate.admit(kPlugged, true).held) << "the device is allowed";
    EXPECT_THAT(Tried(), ElementsAre("usb-storage 1-1:1.0"));
    EXPECT_FALSE(Of(1).authorized || Of(2).authorized);
    // Its vendor admits all of it.
    preview_.vendors = {0x1209};  // its class is listed as before
    gate.admit(kPlugged, true);
    EXPECT_THAT(Tried(), testing::IsSupersetOf({"ftdi_sio 1-1:1.1", "usbhid 1-1:1.2"}));
    // And no longer.
    preview_.vendors = {};
    gate.admit(kPlugged, true);
    EXPECT_EQ(Of(0).driver, "usb-storage");
    EXPECT_EQ(Of(1).driver + Of(2).driver, "");
}

TEST_F(GateTest, CompositeThatIsAllowedComesInAsAWholeByDefault) {
    preview_.classes = {kDiskClass};
    Plug({{0, Disk()}, {1, {kVendorSpecificClass, {"ftdi_sio"}}}});
    EXPECT_FALSE(Admit().held);
    EXPECT_THAT(Tried(), ElementsAre("usb-storage 1-1:1.0", "ftdi_sio 1-1:1.1"));
}

TEST_F(GateTest, RefusedCompositeHasNoInputEither) {
    preview_.sources = {kSourceKeyboard};
    Plug({{0, Disk()}, {1, Keyboard()}});
    const Admission admission = Admit();
    EXPECT_TRUE(admission.held);
    EXPECT_THAT(admission.inputs, IsEmpty());
    EXPECT_THAT(Tried(), IsEmpty());
}

TEST_F(GateTest, WhatHidsDriverDoesNotTakeIsItsVendorsOwn) {
    preview_.sources = {kSourceKeyboard};
    Plug({{0, Keyboard()}});
    Of(0).takers = {"ftdi_sio"};
    const Admission admission = Admit();
    EXPECT_TRUE(admission.held);
    EXPECT_THAT(admission.vendor, ElementsAre("1-1:1.0"));
    EXPECT_THAT(Tried(), ElementsAre("usbhid 1-1:1.0"));
    EXPECT_FALSE(Of(0).authorized);
}

TEST_F(GateTest, WhatTellsHidsDriverMoreThanTheGateStaysHeld) {
    preview_.vendors = {0x1209};
    Plug({{0, Keyboard()}});
    Of(0).report.reset();
    EXPECT_THAT(Admit().vendor, ElementsAre("1-1:1.0"));
    EXPECT_THAT(notices_, ElementsAre("1-1:1.0 says it is HID, but not what for"));
    EXPECT_THAT(Tried(), ElementsAre("usbhid 1-1:1.0")) << "its HID device waits";
}

TEST_F(GateTest, KeyboardThatDoesNotTellAtFirstIsAskedAgain) {
    preview_.sources = {kSourceKeyboard};
    Plug({{0, Keyboard()}});
    Of(0).report.reset();
    EXPECT_TRUE(Admit().held);
    EXPECT_TRUE(Admit().held);
    EXPECT_THAT(notices_, SizeIs(1));
    Of(0).report = kBootKeyboard;
    EXPECT_FALSE(Admit().held);
    EXPECT_THAT(Tried(), ElementsAre("usbhid 1-1:1.0", "hid 0003:1209:0011.0001"));
}

// Its vendor, or what it rides along with, admits it as its vendor's own.
TEST_F(GateTest, KeyboardThatDoesNotTellAtFirstIsAskedAgainIfHidsDriverHasItByThen) {
    preview_.vendors = {0x1209};
    Plug({{0, Keyboard()}});
    Of(0).report.reset();
    Admit();
    Admit();
    EXPECT_THAT(Tried(), ElementsAre("usbhid 1-1:1.0", "usbhid 1-1:1.0")) << "HID's waits";
    Of(0).report = kBootKeyboard;
    EXPECT_FALSE(Admit().is_question);
    EXPECT_THAT(Tried(), ElementsAre("usbhid 1-1:1.0", "hid 0003:1209:0011.0003"));
    EXPECT_THAT(Admit().inputs, IsEmpty());
    EXPECT_THAT(Tried(), IsEmpty());
}

TEST_F(GateTest, WhatTellsAtLastIsJudgedByThat) {
    preview_.classes = {kDiskClass};
    Plug({{0, Disk()}, {1, Keyboard()}});
    Of(1).report.reset();
    EXPECT_THAT(Admit().inputs, IsEmpty());
    EXPECT_EQ(Of(1).driver, kHidDriver) << "it rides along";
    Of(1).report = kBootKeyboard;
    EXPECT_THAT(Admit().inputs, SizeIs(1));
    EXPECT_EQ(Of(0).driver, "usb-storage");
    EXPECT_EQ(Of(1).driver, "");
    EXPECT_FALSE(Of(1).hid);
}

TEST_F(GateTest, WhatNeverTellsIsLeftToHidsDriverInTheEnd) {
    int asked = 0;
    kernel_.meanwhile = [&asked] { ++asked; };
    preview_.vendors = {0x1209};
    Plug({{0, Keyboard()}});
    Of(0).report.reset();
    for (int time = 0; time < 9; ++time) EXPECT_FALSE(Admit().held);
    EXPECT_EQ(asked, 3);
    EXPECT_EQ(Of(0).driver, kHidDriver);
    EXPECT_FALSE(Of(0).hid->has_driver);
}

TEST_F(GateTest, DeviceThatDoesNotTellIsNotAskedForEver) {
    int asked = 0;
    kernel_.meanwhile = [&asked] { ++asked; };
    preview_.sources = {kSourceKeyboard};
    Plug({{0, Keyboard()}});
    Of(0).report.reset();
    for (int time = 0; time < 9; ++time) EXPECT_TRUE(Admit().held);
    EXPECT_EQ(asked, 3);
    Of(0).report = kBootKeyboard;
    EXPECT_TRUE(Admit().held);
    gate_.policy_changed();
    EXPECT_FALSE(Admit().held);
    EXPECT_EQ(asked, 4);
}

// Nor is one that told nonsense.
TEST_F(GateTest, DeviceIsAskedOnceForADescriptorThatTheKernelWouldNotTake) {
    int asked = 0;
    kernel_.meanwhile = [&asked] { ++asked; };
    Plug({{0, {kHidClass, {kHidDriver}, Bytes("c0")}}});
    for (int time = 0; time < 3; ++time) EXPECT_TRUE(Admit().held);
    gate_.policy_changed();
    EXPECT_TRUE(Admit().held);
    EXPECT_EQ(asked, 1);
}

}  // namespace
}  // namespace android::vus::hotplug
