// SPDX-License-Identifier: Apache-2.0
//
// What was judged and is not what it was: another device, driver, configuration or policy.

#include "tests/unit/tools/gate_fixture.h"

namespace android::vus::hotplug {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F(GateTest, DriverThatComesLateIsTriedThen) {
    preview_.sources = {kSourceKeyboard};
    kernel_.drivers = {"hub"};
    Plug({{0, Keyboard()}});
    EXPECT_THAT(Admit().inputs, IsEmpty());
    EXPECT_THAT(Tried(), IsEmpty());
    kernel_.drivers.emplace_back(kHidDriver);
    Admit();
    EXPECT_THAT(Tried(), ElementsAre("usbhid 1-1:1.0", "hid 0003:1209:0011.0001"));
}

TEST_F(GateTest, DaemonHasTheLastWord) {
    preview_.knows_nothing = true;
    Plug({{0, Disk()}});
    EXPECT_TRUE(Admit().held);
    gate_.answered(kPlugged, true);
    gate_.open_interfaces(kPlugged);
    EXPECT_THAT(Tried(), ElementsAre("usb-storage 1-1:1.0"));
    EXPECT_FALSE(Admit().held);

    preview_.knows_nothing = false;
    preview_.classes = {kDiskClass};
    Plug({{0, Disk()}});
    gate_.answered(kPlugged, false);
    gate_.close_interfaces(kPlugged);
    EXPECT_THAT(switches_.Take(), ElementsAre("close 1-1"));
    EXPECT_TRUE(Admit().held);
    EXPECT_THAT(Tried(), IsEmpty());
}

TEST_F(GateTest, WordIsOfThePolicyUnderWhichItWasSaid) {
    Plug({{0, Disk()}});
    EXPECT_TRUE(Admit().held);
    gate_.answered(kPlugged, false);
    preview_.classes = {kDiskClass};
    EXPECT_TRUE(Admit().held);
    gate_.policy_changed();
    EXPECT_FALSE(Admit().held);
    EXPECT_THAT(Tried(), ElementsAre("usb-storage 1-1:1.0"));
}

TEST_F(GateTest, InputDeviceThatARewrittenPolicyRefusesIsHeldAsIfItCame) {
    preview_.sources = {kSourceKeyboard};
    Plug({{0, Keyboard()}});
    EXPECT_THAT(Admit().inputs, IsEmpty());
    EXPECT_FALSE(Tried().empty());
    preview_.knows_nothing = true;  // it is being rewritten
    EXPECT_THAT(Admit().inputs, IsEmpty()) << "it is one already, and is asked about as that";
    EXPECT_EQ(Of(0).driver, kHidDriver);
    preview_.knows_nothing = false;
    preview_.sources = {};
    gate_.policy_changed();
    EXPECT_THAT(Admit().inputs, SizeIs(1));
    EXPECT_EQ(Of(0).driver, "");
    EXPECT_FALSE(Of(0).authorized);
    preview_.sources = {kSourceKeyboard};
    gate_.policy_changed();
    EXPECT_THAT(Admit().released, SizeIs(1));
    EXPECT_EQ(Of(0).driver, kHidDriver);
}

// Nobody who is asked about what is held would shut it.
TEST_F(GateTest, WhatTheKernelDoesNotSwitchOffIsLookedAtAgain) {
    preview_.sources = {kSourceKeyboard};
    Plug({{0, Keyboard()}});
    EXPECT_FALSE(Admit().incomplete);
    preview_.sources = {};
    gate_.policy_changed();
    kernel_.stuck = {"1-1:1.0"};
    const Admission admission = Admit();
    EXPECT_TRUE(admission.incomplete);
    EXPECT_THAT(admission.inputs, IsEmpty()) << "it is one still, and is asked about as that";
    EXPECT_EQ(Of(0).driver, kHidDriver);
    kernel_.stuck = {};
    EXPECT_THAT(Admit().inputs, SizeIs(1));
    EXPECT_EQ(Of(0).driver, "");
}

TEST_F(GateTest, UsbDeviceThatARewrittenPolicyRefusesKeepsItsDriverUntilTheDaemonSaysSo) {
    preview_.classes = {kDiskClass};
    Plug({{0, Disk()}});
    EXPECT_FALSE(Admit().held);
    preview_.classes = {};
    gate_.policy_changed();
    EXPECT_TRUE(Admit().held);
    EXPECT_EQ(Of(0).driver, "usb-storage");
}

TEST_F(GateTest, AnotherConfigurationIsAnotherQuestion) {
    preview_.classes = {kDiskClass};
    Plug({{0, Disk()}});
    Admit();
    gate_.answered(kPlugged, true);
    Tried();
    Plug({{0, Keyboard()}});
    EXPECT_THAT(Admit().inputs, SizeIs(1));
    EXPECT_THAT(Tried(), IsEmpty());
}

TEST_F(GateTest, YesIsOfTheInterfacesThatItWasSaidOf) {
    Plug({{0, Disk()}});
    Admit();
    gate_.answered(kPlugged, true);
    Of(0) = {kVendorSpecificClass, {"ftdi_sio"}};  // before the yes is followed
    gate_.open_interfaces(kPlugged);
    EXPECT_THAT(Tried(), IsEmpty());
    EXPECT_FALSE(Of(0).authorized);
}

TEST_F(GateTest, InterfaceThatChangesWhileItIsJudgedIsJudgedAgain) {
    preview_.classes = {kDiskClass};
    preview_.sources = {kSourceKeyboard};
    Plug({{0, Disk()}, {1, Keyboard()}});
    kernel_.meanwhile = [this] { Of(0) = {kVendorSpecificClass, {"ftdi_sio"}}; };
    EXPECT_TRUE(Admit().held);
    EXPECT_THAT(Tried(), IsEmpty());
}

TEST_F(GateTest, DeviceThatNeverStaysWhatItIsIsHeld) {
    preview_.classes = {kDiskClass, 14};
    preview_.sources = {kSourceKeyboard};
    Plug({{0, Disk()}, {1, Keyboard()}});
    kernel_.meanwhile = [this] { Of(0).class_code = Of(0).class_code == 14 ? kDiskClass : 14; };
    EXPECT_TRUE(Admit().held);
    EXPECT_THAT(Tried(), IsEmpty());
    EXPECT_THAT(notices_, ElementsAre("held 1-1: it does not stay what it is"));
}

// Its predecessor's removal was lost, and the numbers have come round.
TEST_F(GateTest, DeviceInheritsNothingFromOneOfTheSamePortAndNumber) {
    Plug({{0, Disk()}});
    Admit();
    gate_.answered(kPlugged, true);
    EXPECT_FALSE(Admit().held);
    Tried();
    Plug({{0, Disk()}});
    kernel_.devices[kPlugged.name].incarnation = 2;
    kernel_.devices[kPlugged.name].identity.vendorId = 0xBAD;
    gate_.open_interfaces(kPlugged);  // what the other one was allowed
    const Admission admission = Admit();
    EXPECT_TRUE(admission.held);
    EXPECT_EQ(admission.identity->vendorId, 0xBAD);
    EXPECT_THAT(Tried(), IsEmpty());
}

// The controllers were reset while the other one took its time to tell what it is.
TEST_F(GateTest, DeviceIsNotLetInForOneOfTheSamePortAndNumberThatItReplaces) {
    preview_.vendors = {0x1209};
    Plug({{0, Disk()}, {1, Keyboard()}});
    kernel_.meanwhile = [this] {
        Plug({{0, Disk()}, {1, Keyboard()}});
        kernel_.devices[kPlugged.name].incarnation = 2;
        kernel_.devices[kPlugged.name].identity.vendorId = 0xBAD;
    };
    EXPECT_TRUE(Admit().unread);
    EXPECT_THAT(Tried(), IsEmpty());
    EXPECT_FALSE(Of(0).authorized || Of(1).authorized);
    kernel_.meanwhile = [] {};
    EXPECT_TRUE(Admit().held) << "by what it is itself";
    EXPECT_THAT(Tried(), IsEmpty());
}

TEST_F(GateTest, WhatComesWhileAPortIsLookedAtThatWasEmptyIsNotLetIn) {
    preview_.classes = {kDiskClass};
    Plug({{0, Disk()}});
    kernel_.devices[kPlugged.name].incarnation = 0;  // it was not there when it was looked for
    Admit();
    gate_.open_interfaces(kPlugged);
    EXPECT_THAT(Tried(), IsEmpty());
    kernel_.devices[kPlugged.name].incarnation = 1;
    Admit();
    EXPECT_THAT(Tried(), SizeIs(1)) << "but when it is asked about itself";
}

// It was asked about again when the next one came, which a job of the reporter's has met by then.
TEST_F(GateTest, AnswerAboutOneDeviceIsNoneAboutTheNextOfTheSameNumber) {
    Plug({{0, Disk()}});
    const uint64_t before = Admit().incarnation;
    Plug({{0, Disk()}});
    kernel_.devices[kPlugged.name].incarnation = 2;
    gate_.open_interfaces(kPlugged);
    gate_.answered(kPlugged, true, before);
    EXPECT_TRUE(Admit().held);
    EXPECT_THAT(Tried(), IsEmpty());
    gate_.answered(kPlugged, true, Admit().incarnation);
    EXPECT_FALSE(Admit().held);
}

TEST_F(GateTest, DriverForWholeDevicesIsNotTriedOnWhatHasReplacedTheDevice) {
    preview_.vendors = {0x1209};
    Plug({{0, Disk()}});
    kernel_.devices["1-1"].own_driver = "charger";
    kernel_.when_listed = [this] { kernel_.devices["1-1"].incarnation = 2; };
    EXPECT_TRUE(Admit().held);
    EXPECT_THAT(Tried(), IsEmpty());
}

TEST_F(GateTest, DeviceThatHasBecomeAnotherIsLeftAlone) {
    preview_.classes = {kDiskClass};
    Plug({{0, Disk()}});
    kernel_.devices[kPlugged.name].number = 1006;
    EXPECT_FALSE(Admit().held);
    EXPECT_THAT(Tried(), IsEmpty());
    EXPECT_THAT(kernel_.switched, IsEmpty());
}

// Killed after an interface had its driver, before its HID device had.
TEST_F(GateTest, HalfOpenIsShutAndJudged) {
    Plug({{0, Keyboard()}});
    kernel_.interfaces_on = true;
    kernel_.probe("1-1");
    kernel_.probe("1-1:1.0");
    Tried();
    EXPECT_THAT(Admit().inputs, SizeIs(1));
    EXPECT_THAT(Tried(), IsEmpty());
    EXPECT_EQ(Of(0).driver, "");
    EXPECT_FALSE(Of(0).authorized);
}

// Killed after the first of two interfaces had its driver; the policy is another one by now.
TEST_F(GateTest, WhatIsLeftOfAHalfOpenDeviceIsShut) {
    Plug({{0, Disk()}, {1, {255, {"ftdi_sio"}}}});
    kernel_.interfaces_on = true;
    kernel_.probe("1-1");
    kernel_.probe("1-1:1.0");
    Tried();
    EXPECT_TRUE(Admit().held);
    EXPECT_THAT(Tried(), IsEmpty());
    EXPECT_FALSE(Of(1).authorized);
    EXPECT_EQ(Of(0).driver, "usb-storage") << "the daemon is asked first";
}

TEST_F(GateTest, WhatWasBoundBeforeIsJudgedAsItIs) {
    Plug({{0, Keyboard()}});
    kernel_.interfaces_on = true;
    kernel_.probe("1-1");
    kernel_.probe("1-1:1.0");
    kernel_.probe_hid("0003:1209:0011.0001");
    Tried();
    const Admission admission = Admit();
    EXPECT_FALSE(admission.held);
    EXPECT_THAT(admission.inputs, IsEmpty());
    EXPECT_EQ(Of(0).driver, kHidDriver);
    EXPECT_THAT(kernel_.switched, IsEmpty());
}

TEST_F(GateTest, WhatHasGoneIsHeldNoMore) {
    Plug({{0, Keyboard()}});
    const std::string held = Admit().inputs.at(0).subject.key();
    EXPECT_THAT(gate_.keep_only({kPlugged.key()}), IsEmpty());
    EXPECT_THAT(KeysOf(gate_.forget(kPlugged)), ElementsAre(held));
    EXPECT_THAT(gate_.forget(kPlugged), IsEmpty());
    Admit();
    EXPECT_THAT(KeysOf(gate_.keep_only({})), ElementsAre(held));
    EXPECT_THAT(gate_.held_keys(), IsEmpty());
}

TEST_F(GateTest, LateFarewellDoesNotForgetWhoCameToThePort) {
    Plug({{0, Keyboard()}});
    const Subject first = Admit().inputs.at(0).subject;
    Plug({{0, Keyboard()}});
    kernel_.devices[kPlugged.name].number = 1006;
    const Subject second = gate_.admit({kPlugged.name, 1006}, true).inputs.at(0).subject;
    EXPECT_THAT(KeysOf(gate_.forget(kPlugged)), ElementsAre(first.key()));
    EXPECT_EQ(gate_.held_keys().count(second.key()), 1U);
}

}  // namespace
}  // namespace android::vus::hotplug
