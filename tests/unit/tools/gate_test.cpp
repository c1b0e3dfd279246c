// SPDX-License-Identifier: Apache-2.0
//
// Who gets a driver, and who never does, before a kernel that does as the real one.

#include "tools/hotplug/gate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/tools/fake_kernel.h"
#include "tests/unit/tools/fake_switches.h"
#include "tests/unit/tools/reports.h"
#include "tools/common/input_sources.h"
#include "tools/hotplug/sysfs_paths.h"

namespace android::vus::hotplug {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

constexpr int32_t kDiskClass = 8;
const Subject kPlugged = {"1-1", 1005};
constexpr char kBluetoothKeyboard[] = "0005:046D:B342.0003";

// Says yes to what a test lists.
class FakePreview : public Preview {
  public:
    Foreseen of(const Claim& claim) override {
        claims.push_back(claim);
        if (knows_nothing) return Foreseen::kUnknown;
        if (vendors.count(claim.vendorId) != 0) return Foreseen::kAllowed;
        if (claim.interfaceClasses.empty()) {
            return (claim.deviceClass & 0xFFFFFF00) != 0 && sources.count(claim.deviceClass) != 0
                           ? Foreseen::kAllowed
                           : Foreseen::kRefused;
        }
        bool any = false;
        for (const int32_t code : claim.interfaceClasses) {
            if (code == kHidClass || code == kVendorSpecificClass || code == 9) continue;
            if (classes.count(code) == 0) return Foreseen::kRefused;
            any = true;
        }
        return any ? Foreseen::kAllowed : Foreseen::kRefused;
    }

    bool admits_by_class(const Claim& claim) override {
        return vendors.count(claim.vendorId) == 0 && of(claim) == Foreseen::kAllowed;
    }

    std::set<int32_t> classes, sources, vendors;
    bool knows_nothing = false;
    std::vector<Claim> claims;
};

std::vector<std::string> KeysOf(const std::vector<Subject>& subjects) {
    std::vector<std::string> keys;
    for (const Subject& subject : subjects) keys.push_back(subject.key());
    return keys;
}

class GateTest : public testing::Test {
  protected:
    void Plug(std::map<int32_t, FakeKernel::Interface> interfaces) {
        FakeKernel::Device device;
        device.number = kPlugged.number;
        device.identity.deviceName = "Example";
        device.identity.vendorId = 0x1209;
        device.identity.productId = 0x11;
        device.interfaces = std::move(interfaces);
        kernel_.devices[kPlugged.name] = std::move(device);
    }
    static FakeKernel::Interface Disk() { return {kDiskClass, {"usb-storage"}}; }
    static FakeKernel::Interface Keyboard() {
        return {kHidClass, {kHidDriver}, kBootKeyboard, /*has_input=*/true};
    }
    static FakeKernel::Interface Programmer() { return {kHidClass, {kHidDriver}, kVendorsOwn}; }

    Admission Admit() { return gate_.admit(kPlugged, /*anybody_there=*/true); }
    std::vector<std::string> Tried() { return std::exchange(kernel_.tried, {}); }
    bool StaysSilent(const std::string& input, Sighting seen, bool anybody_there) {
        return gate_.stays_silent(input, &seen, anybody_there);
    }
    FakeKernel::Interface& Of(int32_t number) {
        return kernel_.devices[kPlugged.name].interfaces[number];
    }

    FakeKernel kernel_;
    FakeSwitches switches_;
    FakePreview preview_;
    std::vector<std::string> notices_;
    Gate gate_{&kernel_, &switches_, &preview_,
               [this](const std::string& line) { notices_.push_back(line); }};
};

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

TEST_F(GateTest, HubIsBoundByTheHubsDriverAlone) {
    Plug({{0, {9, {"hub", "ftdi_sio"}}}});
    EXPECT_FALSE(gate_.admit(kPlugged, /*anybody_there=*/false).held);
    EXPECT_THAT(Tried(), ElementsAre("hub 1-1:1.0"));
    Plug({{0, {9, {"ftdi_sio"}}}});
    EXPECT_TRUE(Admit().held);
    EXPECT_THAT(Tried(), ElementsAre("hub 1-1:1.0"));
    EXPECT_FALSE(Of(0).authorized);
}

TEST_F(GateTest, NothingButHubsComesInWhileNobodyIsThere) {
    preview_.classes = {kDiskClass};
    Plug({{0, Disk()}});
    gate_.admit(kPlugged, /*anybody_there=*/false);
    EXPECT_THAT(Tried(), IsEmpty());
    Admit();
    EXPECT_THAT(Tried(), ElementsAre("usb-storage 1-1:1.0"));
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
    gate_.answered(held.subject, true);
    gate_.open_held(held.usb_device, held.behind);
    EXPECT_THAT(Tried(), ElementsAre("usbhid 1-1:1.0", "hid 0003:1209:0011.0001"));
    EXPECT_THAT(gate_.held_keys(), IsEmpty());
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

Sighting SeenInput(int32_t sources) {
    Sighting seen;
    if (sources == 0) return seen;
    seen.info = DeviceInfo();
    seen.info->deviceType = kInputType;
    seen.info->deviceClass = sources;
    return seen;
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

TEST_F(GateTest, InputDeviceThatIsTheSourceOfNothingIsHeardWhenThatIsSeen) {
    gate_.input_appeared("input5");
    Sighting failed;
    failed.settled = false;
    EXPECT_FALSE(StaysSilent("input5", failed, true));
    EXPECT_THAT(switches_.Take(), ElementsAre("hush input5")) << "it was not seen";
    EXPECT_FALSE(StaysSilent("input5", SeenInput(0), true));
    EXPECT_THAT(switches_.Take(), ElementsAre("unhush input5"));
    EXPECT_FALSE(StaysSilent("input5", SeenInput(0), true));
    EXPECT_THAT(switches_.Take(), IsEmpty()) << "whoever silences it now";
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
