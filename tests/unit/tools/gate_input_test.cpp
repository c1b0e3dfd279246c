// SPDX-License-Identifier: Apache-2.0
//
// Input devices behind the gate: held, silent, heard.

#include <functional>
#include <utility>

#include "tests/unit/tools/gate_fixture.h"

namespace android::vus::hotplug {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

Sighting SeenInput(int32_t sources) {
    Sighting seen;
    seen.info = DeviceInfo();
    seen.info->deviceType = kInputType;
    seen.info->deviceClass = sources;
    seen.info->vendorId = 0x1209;
    return seen;
}

TEST_F(GateTest, RefusedInputDeviceStaysWithoutItsHidDriver) {
    preview_.sources = {kSourceKeyboard};
    Plug({{0, Keyboard()}});
    Admit();
    const std::string hid = Of(0).hid->name;
    gate_.unbind_hid(hid);
    Of(0).hid->has_driver = Of(0).hid->has_input_device = false;
    Tried();
    Admit();
    EXPECT_THAT(Tried(), IsEmpty());
    gate_.probe_hid(hid);
    EXPECT_THAT(switches_.Take(), ElementsAre("unbind " + hid, "probe " + hid));
    Admit();
    EXPECT_THAT(Tried(), ElementsAre("hid " + hid));
}

TEST_F(GateTest, HeldInputIsLetInByTheDaemonsWord) {
    Plug({{0, Keyboard()}});
    const HeldInput held = Admit().inputs.at(0);
    EXPECT_THAT(gate_.held_keys(), UnorderedElementsAre(held.subject.key(), "1-1:1.0"));
    gate_.answered(held.subject, true, held.incarnation);
    gate_.open_held(held.usb_device, held.behind);
    EXPECT_THAT(Tried(), ElementsAre("usbhid 1-1:1.0", "hid 0003:1209:0011.0001"));
    EXPECT_THAT(gate_.held_keys(), IsEmpty());
}

// Of none of its input devices, if it has any, would anybody be asked.
TEST_F(GateTest, VendorsOwnHidDeviceOfAnotherBusGoesByItsMaker) {
    preview_.sources = {0x100};  // as a policy names it, so that it depends on what it is
    for (const auto& report : {kVendorsOwn, kAxesWithoutButtons, std::vector<uint8_t>()}) {
        kernel_.other_hid = {{kBluetoothKeyboard, false}};
        kernel_.other_report = report;
        const Admission admission = gate_.admit_hid(kBluetoothKeyboard);
        EXPECT_THAT(switches_.Take(), ElementsAre(std::string("unbind ") + kBluetoothKeyboard));
        ASSERT_THAT(admission.inputs, SizeIs(1));
        EXPECT_EQ(admission.inputs[0].info.deviceClass, 0);
        EXPECT_THAT(Tried(), SizeIs(1));
        kernel_.other_hid[kBluetoothKeyboard] = false;
        EXPECT_THAT(gate_.admit_hid(kBluetoothKeyboard).inputs, SizeIs(1));
        EXPECT_THAT(Tried(), IsEmpty()) << "it is known";
        gate_.answered(admission.inputs[0].subject, true);
        gate_.open_held({}, kBluetoothKeyboard);
        EXPECT_THAT(Tried(), SizeIs(1));
        EXPECT_THAT(switches_.Take(), IsEmpty());
        EXPECT_THAT(gate_.held_keys(), IsEmpty());
        gate_.forget_hid(kBluetoothKeyboard);
    }
}

// It has the number, the port and the interface of the one before.
TEST_F(GateTest, LateYesIsOfTheDeviceThatWasAskedAbout) {
    Plug({{0, Keyboard()}});
    const HeldInput before = Admit().inputs.at(0);
    gate_.forget(kPlugged);
    kernel_.devices[kPlugged.name].incarnation = 2;
    const HeldInput held = Admit().inputs.at(0);
    ASSERT_EQ(held.subject.key(), before.subject.key());
    gate_.answered(before.subject, true, before.incarnation);
    gate_.open_held(before.usb_device, before.behind);
    EXPECT_THAT(Tried(), IsEmpty());
    gate_.answered(held.subject, true, held.incarnation);
    gate_.open_held(held.usb_device, held.behind);
    EXPECT_THAT(Tried(), SizeIs(2));
}

// Whatever events were lost.
TEST_F(GateTest, NothingIsKeptOfWhatHasGone) {
    kernel_.other_hid = {{kBluetoothKeyboard, false}};
    const auto was_let_in = [this] {
        gate_.admit_hid(kBluetoothKeyboard);
        kernel_.other_hid[kBluetoothKeyboard] = false;
        return !Tried().empty();
    };
    preview_.vendors = {0x046D};
    gate_.unbind_hid(kBluetoothKeyboard);
    gate_.keep_only({kBluetoothKeyboard});
    EXPECT_FALSE(was_let_in());
    gate_.keep_only({});
    EXPECT_TRUE(was_let_in());

    preview_.vendors = {};
    gate_.answered(gate_.admit_hid(kBluetoothKeyboard).inputs.at(0).subject, true);
    gate_.keep_only({kBluetoothKeyboard});
    EXPECT_TRUE(was_let_in());
    gate_.keep_only({});
    EXPECT_FALSE(was_let_in());
}

TEST_F(GateTest, SilencedInputDeviceIsKnownUntilItGoes) {
    gate_.input_appeared("input5");
    gate_.input_appeared("input6");
    kernel_.own_inputs = {"input6"};  // it is of no bus any more
    gate_.keep_only({});
    EXPECT_TRUE(StaysSilent("input5", SeenInput(kSourceKeyboard), true))
            << "its event node is about to come";
    EXPECT_FALSE(StaysSilent("input6", SeenInput(kSourceKeyboard), true));
}

TEST_F(GateTest, HidDeviceOfAnotherBusGoesByItsMaker) {
    kernel_.other_hid = {{kBluetoothKeyboard, false}};
    const Admission refused = gate_.admit_hid(kBluetoothKeyboard);
    ASSERT_THAT(refused.inputs, SizeIs(1));
    EXPECT_EQ(refused.inputs[0].behind, kBluetoothKeyboard);
    EXPECT_EQ(refused.inputs[0].info.vendorId, 0x046D);
    EXPECT_EQ(refused.inputs[0].info.productId, 0xB342);
    EXPECT_EQ(refused.inputs[0].info.deviceClass, 0);
    EXPECT_THAT(Tried(), IsEmpty());

    preview_.vendors = {0x046D};
    EXPECT_THAT(gate_.admit_hid(kBluetoothKeyboard).released, SizeIs(1));
    EXPECT_THAT(Tried(), ElementsAre(std::string("hid ") + kBluetoothKeyboard));
}

TEST_F(GateTest, HidDeviceOfAnotherBusComesInToBeJudgedIfItsMakerDoesNotSettleIt) {
    kernel_.other_hid = {{kBluetoothKeyboard, false}};
    preview_.sources = {0x100};  // as a policy names it
    EXPECT_THAT(gate_.admit_hid(kBluetoothKeyboard).inputs, IsEmpty());
    EXPECT_THAT(Tried(), ElementsAre(std::string("hid ") + kBluetoothKeyboard));
    gate_.unbind_hid(kBluetoothKeyboard);
    kernel_.other_hid[kBluetoothKeyboard] = false;
    gate_.admit_hid(kBluetoothKeyboard);
    EXPECT_THAT(Tried(), IsEmpty()) << "it was refused";
    gate_.forget_hid(kBluetoothKeyboard);
    gate_.admit_hid(kBluetoothKeyboard);
    EXPECT_THAT(Tried(), SizeIs(1));
}

// Together they move and click.
TEST_F(GateTest, PointerInPartsIsHeldByItself) {
    preview_.classes = {kDiskClass};
    for (const auto& half : {kMouseWithoutLeftButton, kLeftButtonAlone}) {
        Plug({{0, {kHidClass, {kHidDriver}, half}}});
        const Admission admission = Admit();
        EXPECT_FALSE(admission.is_question) << "it is the input side's";
        ASSERT_THAT(admission.inputs, SizeIs(1));
        EXPECT_EQ(admission.inputs[0].info.deviceClass, kSourceMouse);
        EXPECT_THAT(Tried(), IsEmpty());
        gate_.forget(kPlugged);
    }
}

TEST_F(GateTest, PointerInPartsDoesNotRideAlong) {
    preview_.classes = {kDiskClass};
    Plug({{0, Disk()},
          {1,
           {kHidClass, {kHidDriver}, kMouseWithoutLeftButton + Bytes("8502") + kLeftButtonAlone}},
          {2, {kHidClass, {kHidDriver}, kHoveringPen}}});
    const Admission admission = Admit();
    EXPECT_FALSE(admission.held);
    ASSERT_THAT(admission.inputs, SizeIs(2));
    EXPECT_EQ(admission.inputs[0].info.deviceClass, kSourceMouse);
    EXPECT_EQ(admission.inputs[1].info.deviceClass, kSourceStylus);
    EXPECT_THAT(Tried(), ElementsAre("usb-storage 1-1:1.0"));
    EXPECT_FALSE(Of(1).authorized || Of(2).authorized);
}

TEST_F(GateTest, PointerInPartsDoesNotHideBehindAKeyboard) {
    preview_.sources = {kSourceKeyboard};
    Plug({{0,
           {kHidClass,
            {kHidDriver},
            Bytes("8501") + kBootKeyboard + Bytes("8502") + kMouseWithoutLeftButton,
            /*has_input=*/true}}});
    const Admission admission = Admit();
    ASSERT_THAT(admission.inputs, SizeIs(1));
    EXPECT_EQ(admission.inputs[0].info.deviceClass, kSourceMouse);
    EXPECT_THAT(Tried(), IsEmpty());
}

TEST_F(GateTest, InputDeviceIsSilentUntilItIsKnown) {
    preview_.sources = {kSourceMouse};
    gate_.input_appeared("input5");
    EXPECT_THAT(switches_.Take(), ElementsAre("hush input5"));
    EXPECT_TRUE(StaysSilent("input5", SeenInput(kSourceKeyboard), true));
    EXPECT_FALSE(StaysSilent("input5", SeenInput(kSourceKeyboard), true)) << "it was said";
    EXPECT_THAT(switches_.Take(), IsEmpty());

    gate_.input_appeared("input6");
    EXPECT_FALSE(StaysSilent("input6", SeenInput(kSourceMouse), true));
    EXPECT_THAT(switches_.Take(), ElementsAre("hush input6", "unhush input6"));
    gate_.input_appeared("input7");
    EXPECT_TRUE(StaysSilent("input7", SeenInput(kSourceMouse), false)) << "nobody is there";
}

// Switches at which something else happens before the first device is silenced.
class BusySwitches : public FakeSwitches {
  public:
    bool hush_input(const std::string& input) override {
        if (meanwhile) std::exchange(meanwhile, nullptr)();
        return FakeSwitches::hush_input(input);
    }

    std::function<void()> meanwhile;
};

// It was found when its driver came, and is looked at for that while it is announced.
TEST_F(GateTest, InputDeviceThatIsLookedAtWhileItIsSilencedIsHeardInTheEnd) {
    preview_.sources = {kSourceMouse};
    BusySwitches switches;
    Gate gate(&kernel_, &switches, &preview_, [](const std::string&) {});
    const auto look = [&] {
        Sighting seen = SeenInput(kSourceMouse);
        EXPECT_FALSE(gate.stays_silent("input5", &seen, true));
    };
    switches.meanwhile = look;
    gate.input_appeared("input5");
    look();  // for its event node, which is announced next
    EXPECT_THAT(switches.Take(), ElementsAre("hush input5", "unhush input5"));
}

TEST_F(GateTest, InputDeviceThatIsNothingToAnybodyIsHeardWhenThatIsSeen) {
    gate_.input_appeared("input5");
    Sighting failed;
    failed.settled = false;
    EXPECT_FALSE(StaysSilent("input5", failed, true));
    EXPECT_THAT(switches_.Take(), ElementsAre("hush input5")) << "it was not seen";
    EXPECT_FALSE(StaysSilent("input5", Sighting(), true));
    EXPECT_THAT(switches_.Take(), ElementsAre("unhush input5"));
    EXPECT_FALSE(StaysSilent("input5", Sighting(), true));
    EXPECT_THAT(switches_.Take(), IsEmpty()) << "whoever silences it now";
}

TEST_F(GateTest, InputDeviceOfNoSourceIsSilentUnlessItsMakerIsAllowed) {
    preview_.sources = {kSourceKeyboard, kSourceMouse};
    gate_.input_appeared("input5");
    EXPECT_TRUE(StaysSilent("input5", SeenInput(0), true));
    EXPECT_THAT(switches_.Take(), ElementsAre("hush input5"));
    preview_.vendors = {0x1209};
    gate_.input_appeared("input6");
    EXPECT_FALSE(StaysSilent("input6", SeenInput(0), true));
    EXPECT_THAT(switches_.Take(), ElementsAre("hush input6", "unhush input6"));
}

// Whoever hears the daemon's "yes" tries again, until it can be heard.
TEST_F(GateTest, InputDeviceThatIsForeseenToBeAllowedButCouldNotBeHeardWaitsForAYes) {
    preview_.sources = {kSourceMouse};
    switches_.failures = 1;
    gate_.input_appeared("input5");
    EXPECT_TRUE(StaysSilent("input5", SeenInput(kSourceMouse), true));
    EXPECT_THAT(switches_.Take(), ElementsAre("hush input5", "unhush input5"));
}

// Also of one that nobody has silenced: it was there before the gate.
TEST_F(GateTest, InputDeviceThatIsForeseenToBeAllowedIsVouchedFor) {
    preview_.sources = {kSourceMouse};
    Sighting mouse = SeenInput(kSourceMouse);
    gate_.stays_silent("input5", &mouse, true);
    EXPECT_TRUE(mouse.vouched);
    gate_.input_appeared("input6");
    mouse = SeenInput(kSourceMouse);
    gate_.stays_silent("input6", &mouse, true);
    EXPECT_TRUE(mouse.vouched);
    mouse = SeenInput(kSourceMouse);
    gate_.stays_silent("input7", &mouse, false);
    EXPECT_FALSE(mouse.vouched) << "nobody is there";
    Sighting keyboard = SeenInput(kSourceKeyboard);
    gate_.stays_silent("input8", &keyboard, true);
    EXPECT_FALSE(keyboard.vouched);
}

TEST_F(GateTest, BoardsOwnInputDevicesAreNotSilenced) {
    kernel_.own_inputs = {"input0"};
    gate_.input_appeared("input0");
    EXPECT_THAT(switches_.Take(), IsEmpty());
}

// The one before was killed before it had seen them.
TEST_F(GateTest, InputDevicesThatAnotherGateSilencedAreLookedAt) {
    kernel_.own_inputs = {"input0"};
    kernel_.silent = {"input0", "input5", "input6"};
    preview_.sources = {kSourceMouse};
    gate_.shut();
    gate_.forget_input("input6");
    switches_.Take();
    for (const char* input : {"input0", "input5", "input6"}) {
        EXPECT_FALSE(StaysSilent(input, SeenInput(kSourceMouse), true));
    }
    EXPECT_THAT(switches_.Take(), ElementsAre("unhush input5"));
}

TEST_F(GateTest, HeldHidDeviceIsLetInByTheDaemonsWord) {
    kernel_.other_hid = {{kBluetoothKeyboard, false}};
    const HeldInput held = gate_.admit_hid(kBluetoothKeyboard).inputs.at(0);
    gate_.answered(held.subject, true);
    gate_.open_held(held.usb_device, held.behind);
    EXPECT_THAT(Tried(), ElementsAre(std::string("hid ") + kBluetoothKeyboard));
}

}  // namespace
}  // namespace android::vus::hotplug
