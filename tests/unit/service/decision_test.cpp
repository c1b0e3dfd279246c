// SPDX-License-Identifier: Apache-2.0
//
// The admission decision: verdict, reason, enforcement, record and log.

#include <cstdint>

#include "service_fixture.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kDefaultReason[] = "Enabled by default rule";
constexpr char kNotWhitelisted[] = "No matching rule found to Whitelist the device";
constexpr char kNotBlacklisted[] = "No matching rule found to Blacklist the device";

class DecisionTest : public ServiceTest {
  protected:
    void ExpectAnswer(const DeviceInfo& info, bool expected) {
        bool allowed = !expected;  // an answer that is not given must not pass
        EXPECT_TRUE(service_->isDeviceAllowed(info, &allowed).isOk());
        EXPECT_EQ(allowed, expected);
    }

    // Compares the answer, the stored verdict and the stored reason.
    void Expect(const DeviceInfo& info, bool allowed, const std::string& reason) {
        ExpectAnswer(info, allowed);
        const std::vector<DeviceInfo> list = List();
        ASSERT_EQ(list.size(), 1u);
        EXPECT_EQ(list[0].status, allowed ? 1 : 0);
        EXPECT_EQ(list[0].reason, reason);
        service_->updateDeviceList(info, 0);
    }

    // Attaches 1-2 as device 1002 with interfaces of the given classes and describes it.
    DeviceInfo Attach(const std::vector<int32_t>& classes) {
        AttachUsbDevice("1-2", 2, classes);
        return UsbDeviceInfo(1002, classes, "disk");
    }
};

TEST_F(DecisionTest, UnderAutomationEverythingIsAllowedAndNothingElseHappens) {
    LoadPolicy("<usbconfig mode='whitelist'/>");
    const DeviceInfo disk = Attach({8});
    SetProperty(kAutomationProperty, "1");
    logs_.Clear();
    ExpectAnswer(disk, true);
    EXPECT_THAT(logs_.Lines(), ElementsAre("I isDeviceAllowed::Automation flag set, return"));
    EXPECT_THAT(ListedIds(), IsEmpty());
    EXPECT_EQ(Authorized("1-2:1.0"), "1");
}

TEST_F(DecisionTest, AnyOtherAutomationValueIsNone) {
    LoadPolicy("<usbconfig mode='whitelist'/>");
    SetProperty(kAutomationProperty, "2");
    Expect(Attach({8}), false, kNotWhitelisted);
}

TEST_F(DecisionTest, DefaultModeAllows) {
    const DeviceInfo disk = Attach({8});
    Expect(disk, true, kDefaultReason);
    EXPECT_EQ(Authorized("1-2:1.0"), "1");
}

TEST_F(DecisionTest, DefaultModeDoesNotConsultTheRules) {
    // Tables that a default policy would not have, to see that they are not asked.
    LoadPolicy("<usbconfig mode='blacklist'><class>USB_CLASS_MASS_STORAGE</class></usbconfig>");
    Util::configMode = "default";
    Expect(Attach({8}), true, kDefaultReason);
}

// HID screening.

TEST_F(DecisionTest, APlainUsbKeyboardIsLeftToTheInputSubsystem) {
    LoadPolicy("<usbconfig mode='whitelist'/>");
    AttachUsbDevice("1-2", 2, {3, 3});
    MakeDir(UsbPath("1-2:1.0", "0003:046D:C31C.0001/input"));
    MakeDir(UsbPath("1-2:1.1", "0003:046D:C31C.0002/input"));
    const sp<RecordingCallback> client = RegisterClient();
    ExpectAnswer(UsbDeviceInfo(1002, {3, 3}), false);
    EXPECT_EQ(logs_.Lines().back(), "I The HID device is controlled by Input Subsystem  ");
    EXPECT_THAT(ListedIds(), IsEmpty());
    EXPECT_THAT(client->Events(), IsEmpty());
    EXPECT_EQ(Authorized("1-2:1.0"), "1");
}

TEST_F(DecisionTest, APlainUsbKeyboardIsAnsweredFalseInDefaultModeToo) {
    AttachUsbDevice("1-2", 2, {3});
    MakeDir(UsbPath("1-2:1.0", "0003:046D:C31C.0001/input"));
    ExpectAnswer(UsbDeviceInfo(1002, {3}), false);
    EXPECT_THAT(ListedIds(), IsEmpty());
    EXPECT_EQ(Authorized("1-2:1.0"), "1");
}

TEST_F(DecisionTest, ADeviceWithoutInterfacesIsScreenedLikeAHidDevice) {
    ExpectAnswer(UsbDeviceInfo(1002, {}), false);
    EXPECT_EQ(Messages().back(), "The HID device is controlled by Input Subsystem  ");
}

TEST_F(DecisionTest, AVendorHidDeviceIsJudgedAsAUsbDevice) {
    AttachUsbDevice("1-2", 2, {3});
    MakeDir(UsbPath("1-2:1.0", "0003:046D:C31C.0001/hidraw"));
    LoadPolicy("<usbconfig mode='whitelist'/>");
    Expect(UsbDeviceInfo(1002, {3}), false, kNotWhitelisted);
    EXPECT_EQ(Authorized("1-2:1.0"), "0");
}

TEST_F(DecisionTest, OneOtherInterfaceMakesItAUsbDevice) {
    AttachUsbDevice("1-2", 2, {3, 8, 1});
    LoadPolicy("<usbconfig mode='whitelist'/>");
    Expect(UsbDeviceInfo(1002, {3, 8, 1}), false, kNotWhitelisted);
    EXPECT_THAT(Messages(), Contains("class is 8not HID"));
    EXPECT_THAT(Messages(), Not(Contains("class is 1not HID")));
    EXPECT_THAT(Messages(), Not(Contains(StartsWith("check_vendor_hid"))));
}

TEST_F(DecisionTest, AnInputDeviceIsNotScreened) {
    Expect(InputDevice(7, 0x101), true, kDefaultReason);
    EXPECT_THAT(Messages(), Not(Contains("create_usb_device_map called")));
}

// Class rules.

TEST_F(DecisionTest, ARestrictedInterfaceIsSkipped) {
    LoadPolicy("<usbconfig mode='whitelist'><class>USB_CLASS_MASS_STORAGE</class></usbconfig>");
    Expect(Attach({8, 255}), true,
           "Whitelisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE ");
    Expect(Attach({255, 8}), true,
           "Whitelisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE ");
}

TEST_F(DecisionTest, EveryListedClassIsNamedOnce) {
    LoadPolicy(
            "<usbconfig mode='whitelist'><class>USB_CLASS_MASS_STORAGE</class>"
            "<class>USB_CLASS_AUDIO</class></usbconfig>");
    Expect(Attach({1, 8, 1, 8}), true,
           "Whitelisted: Match by ClassName, CLASS : USB_CLASS_AUDIO USB_CLASS_MASS_STORAGE ");
}

TEST_F(DecisionTest, TheFirstUnlistedClassEndsTheScan) {
    LoadPolicy("<usbconfig mode='whitelist'><class>USB_CLASS_MASS_STORAGE</class></usbconfig>");
    const DeviceInfo device = Attach({1, 8});
    logs_.Clear();
    Expect(device, false, kNotWhitelisted);
    EXPECT_THAT(Messages(), Contains("interface class check false breaking"));
    EXPECT_THAT(Messages(), Contains("1"));
    EXPECT_THAT(Messages(), Not(Contains("8")));
    EXPECT_EQ(Authorized("1-2:1.0"), "0");
    EXPECT_EQ(Authorized("1-2:1.1"), "0");
}

TEST_F(DecisionTest, AMatchBeforeAnUnlistedClassDoesNotSurvive) {
    LoadPolicy("<usbconfig mode='whitelist'><class>USB_CLASS_MASS_STORAGE</class></usbconfig>");
    Expect(Attach({8, 1}), false, kNotWhitelisted);
    LoadPolicy("<usbconfig mode='blacklist'><class>USB_CLASS_MASS_STORAGE</class></usbconfig>");
    Expect(Attach({8, 1}), true, kNotBlacklisted);
}

TEST_F(DecisionTest, ADeviceOfRestrictedClassesOnlyHasNoClassMatch) {
    LoadPolicy("<usbconfig mode='whitelist'><class>USB_CLASS_MASS_STORAGE</class></usbconfig>");
    Expect(Attach({255, 254}), false, kNotWhitelisted);
    LoadPolicy("<usbconfig mode='blacklist'><class>USB_CLASS_MASS_STORAGE</class></usbconfig>");
    Expect(Attach({255, 254}), true, kNotBlacklisted);
}

TEST_F(DecisionTest, AVendorHidDeviceWithoutInterfacesIsJudgedByItsSources) {
    AttachUsbDevice("1-2", 2, {3});
    MakeDir(UsbPath("1-2:1.0", "0003:046D:C31C.0001"));
    LoadPolicy("<usbconfig mode='whitelist'><class>AINPUT_SOURCE_KEYBOARD</class></usbconfig>");
    DeviceInfo device = UsbDeviceInfo(1002, {});
    device.deviceClass = 0x101;
    Expect(device, true, "Whitelisted: Match by ClassName, CLASS : AINPUT_SOURCE_KEYBOARD ");
}

TEST_F(DecisionTest, AnInputDeviceWithInterfacesIsJudgedByThem) {
    LoadPolicy("<usbconfig mode='whitelist'><class>USB_CLASS_MASS_STORAGE</class></usbconfig>");
    DeviceInfo device = InputDevice(7, 0x101);
    device.interfaceClassList = {8};
    Expect(device, true, "Whitelisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE ");
}

// Input sources.

TEST_F(DecisionTest, AListedSourceIsAllowed) {
    LoadPolicy("<usbconfig mode='whitelist'><class>AINPUT_SOURCE_KEYBOARD</class></usbconfig>");
    Expect(InputDevice(7, 0x101), true,
           "Whitelisted: Match by ClassName, CLASS : AINPUT_SOURCE_KEYBOARD ");
}

TEST_F(DecisionTest, EverySourceMustBeListed) {
    LoadPolicy("<usbconfig mode='whitelist'><class>AINPUT_SOURCE_KEYBOARD</class></usbconfig>");
    Expect(InputDevice(7, 0x2103), false, kNotWhitelisted);
    EXPECT_THAT(logs_.Lines(), Contains("I HID multiClass check"));
    EXPECT_THAT(logs_.Lines(), Contains("I HID multi class check false breaking"));
    EXPECT_THAT(Messages(), Not(Contains(StartsWith("update_status"))));
    LoadPolicy(
            "<usbconfig mode='whitelist'><class>AINPUT_SOURCE_KEYBOARD</class>"
            "<class>AINPUT_SOURCE_MOUSE</class></usbconfig>");
    Expect(InputDevice(7, 0x2103), true,
           "Whitelisted: Match by ClassName, CLASS : AINPUT_SOURCE_KEYBOARD AINPUT_SOURCE_MOUSE ");
}

TEST_F(DecisionTest, AnInputDeviceWithoutSourcesGoesToTheVendorRules) {
    LoadPolicy("<usbconfig mode='whitelist'><vid vendorid='1133'/></usbconfig>");
    DeviceInfo device = InputDevice(7, 0x01);
    Expect(device, false, kNotWhitelisted);
    device.vendorId = 1133;
    Expect(device, true, "Whitelisted: Match by VID, VID : 1133");
}

TEST_F(DecisionTest, ARefusedInputDeviceIsOnlyReported) {
    AttachUsbDevice("1-2", 2, {3});
    LoadPolicy("<usbconfig mode='whitelist'/>");
    UsbDevice::create_usb_device_map();
    Expect(InputDevice(1002, 0x101), false, kNotWhitelisted);
    EXPECT_EQ(Authorized("1-2:1.0"), "1");
}

// Vendor rules.

TEST_F(DecisionTest, AWholeVendor) {
    DeviceInfo disk = Attach({8});
    disk.vendorId = 2385;
    LoadPolicy("<usbconfig mode='blacklist'><vid vendorid='2385'/></usbconfig>");
    Expect(disk, false, "Blacklisted: Match by VID, VID : 2385");
    EXPECT_EQ(Authorized("1-2:1.0"), "0");
    LoadPolicy("<usbconfig mode='whitelist'><vid vendorid='2385'/></usbconfig>");
    Expect(disk, true, "Whitelisted: Match by VID, VID : 2385");
}

TEST_F(DecisionTest, AVendorAndProduct) {
    DeviceInfo disk = Attach({8});
    disk.vendorId = 1234;
    disk.productId = 22136;
    LoadPolicy(
            "<usbconfig mode='whitelist'><vid vendorid='1234'><pid>22136</pid></vid></usbconfig>");
    Expect(disk, true, "Whitelisted: Match by VID_PID combination, VID : 1234 PID: 22136");
    disk.productId = 22137;
    Expect(disk, false, kNotWhitelisted);
}

TEST_F(DecisionTest, TheWholeVendorIsTriedBeforeItsProducts) {
    DeviceInfo disk = Attach({8});
    disk.vendorId = 1234;
    disk.productId = 1;
    LoadPolicy(
            "<usbconfig mode='whitelist'><vid vendorid='1234'><pid>1</pid></vid>"
            "<vid vendorid='1234'/></usbconfig>");
    Expect(disk, true, "Whitelisted: Match by VID, VID : 1234");
}

TEST_F(DecisionTest, TheWholeVendorLookupWalksOn) {
    DeviceInfo disk = Attach({8});
    disk.vendorId = 100;
    disk.productId = 6;
    LoadPolicy(
            "<usbconfig mode='whitelist'><vid vendorid='100'><pid>5</pid></vid>"
            "<vid vendorid='200'/></usbconfig>");
    Expect(disk, true, "Whitelisted: Match by VID, VID : 100");
}

TEST_F(DecisionTest, AClassMatchEndsTheSearch) {
    DeviceInfo disk = Attach({8});
    disk.vendorId = 2385;
    LoadPolicy(
            "<usbconfig mode='whitelist'><class>USB_CLASS_MASS_STORAGE</class>"
            "<vid vendorid='2385'/></usbconfig>");
    Expect(disk, true, "Whitelisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE ");
    EXPECT_THAT(Messages(), Not(Contains(StartsWith("Found VID"))));
}

TEST_F(DecisionTest, AnAbandonedClassScanLeavesNoTraceInTheVendorsReason) {
    DeviceInfo device = Attach({8, 1});
    device.vendorId = 2385;
    LoadPolicy(
            "<usbconfig mode='whitelist'><class>USB_CLASS_MASS_STORAGE</class>"
            "<vid vendorid='2385'/></usbconfig>");
    Expect(device, true, "Whitelisted: Match by VID, VID : 2385");
}

// The modes, for a USB device that no rule names and for one that a rule names.

struct Outcome {
    const char* mode;
    bool listed;
    bool allowed;
    const char* reason;
};

class ModeTest : public DecisionTest, public ::testing::WithParamInterface<Outcome> {};

TEST_P(ModeTest, GivesTheVerdict) {
    const Outcome& outcome = GetParam();
    LoadPolicy(outcome.listed
                       ? "<usbconfig mode='whitelist'><class>USB_CLASS_AUDIO</class></usbconfig>"
                       : "<usbconfig mode='whitelist'/>");
    Util::configMode = outcome.mode;
    const DeviceInfo headset = Attach({1, 1});
    Expect(headset, outcome.allowed, outcome.reason);
    const std::string state = outcome.allowed ? "1" : "0";
    EXPECT_EQ(Authorized("1-2:1.0"), state);
    EXPECT_EQ(Authorized("1-2:1.1"), state);
}

INSTANTIATE_TEST_SUITE_P(
        All, ModeTest,
        ::testing::Values(Outcome{"default", true, true, kDefaultReason},
                          Outcome{"default", false, true, kDefaultReason},
                          Outcome{"whitelist", true, true,
                                  "Whitelisted: Match by ClassName, CLASS : USB_CLASS_AUDIO "},
                          Outcome{"whitelist", false, false, kNotWhitelisted},
                          Outcome{"blacklist", true, false,
                                  "Blacklisted: Match by ClassName, CLASS : USB_CLASS_AUDIO "},
                          Outcome{"blacklist", false, true, kNotBlacklisted},
                          // Whatever else a failed load left is a whitelist.
                          Outcome{"greylist", true, true,
                                  "Whitelisted: Match by ClassName, CLASS : USB_CLASS_AUDIO "},
                          Outcome{"greylist", false, false, kNotWhitelisted},
                          Outcome{"", false, false, kNotWhitelisted},
                          Outcome{"Default", false, false, kNotWhitelisted},
                          Outcome{"BLACKLIST", false, false, kNotWhitelisted}));

TEST_F(DecisionTest, AFailedLoadLeavesItsInvalidModeInForce) {
    LoadPolicy("<usbconfig mode='open'/>");
    Expect(Attach({8}), false, kNotWhitelisted);
}

// Order and log.

TEST_F(DecisionTest, ARefusalIsLoggedInOrder) {
    LoadPolicy("<usbconfig mode='whitelist'/>");
    DeviceInfo disk = Attach({8});
    disk.deviceClass = 0;
    disk.vendorId = 2385;
    disk.productId = 5734;
    logs_.Clear();
    ExpectAnswer(disk, false);
    EXPECT_THAT(logs_.Errors(), IsEmpty());
    EXPECT_THAT(OnlyFrom({"class is ", "create_usb_device_map called", "8", "interface class check",
                          "isDeviceAllowed", "update_status path with", "disk device added",
                          "custom_struct"}),
                ElementsAre("class is 8not HID", "create_usb_device_map called", "8",
                            "interface class check false breaking", "isDeviceAllowed res val:0",
                            "isDeviceAllowed called and updating status authorized to 0",
                            "update_status path with deviceId 1002 status:0",
                            "disk device added to mUsbDeviceInfoList ", "custom_struct size is 1",
                            "isDeviceAllowed called with mode: whitelist DeviceInfo:= { "
                            "DeviceId:1002, DeviceName: disk, ClassName: "
                            "USB_CLASS_PER_INTERFACE[ 0 ], InterfaceClassCount: 1, VendorId: 2385, "
                            "ProductId: 5734, Status: 0, Reason: No matching rule found to "
                            "Whitelist the device }"));
}

TEST_F(DecisionTest, AnAllowedDeviceIsLoggedWithStatusOne) {
    ExpectAnswer(InputDevice(7, 4, "odd"), true);
    EXPECT_THAT(Messages(), Contains("isDeviceAllowed res val:1"));
    // A class without a name is a blank.
    EXPECT_EQ(Messages().back(),
              "isDeviceAllowed called with mode: default DeviceInfo:= { DeviceId:7, DeviceName: "
              "odd, ClassName:  [ 4 ], InterfaceClassCount: 0, VendorId: 0, ProductId: 0, "
              "Status: 1, Reason: Enabled by default rule }");
}

TEST_F(DecisionTest, ARefusedDeviceIsOffBeforeClientsHearOfIt) {
    LoadPolicy("<usbconfig mode='whitelist'/>");
    const DeviceInfo disk = Attach({8});
    const sp<RecordingCallback> client = RegisterClient();
    std::string state;
    client->on_added = [&](const DeviceInfo&) { state = Authorized("1-2:1.0"); };
    ExpectAnswer(disk, false);
    EXPECT_EQ(state, "0");
}

TEST_F(DecisionTest, TheReportersRecordIsNotChanged) {
    LoadPolicy("<usbconfig mode='whitelist'/>");
    DeviceInfo disk = Attach({8});
    disk.status = 7;
    disk.reason = "mine";
    ExpectAnswer(disk, false);
    EXPECT_EQ(disk.status, 7);
    EXPECT_EQ(disk.reason, "mine");
}

TEST_F(DecisionTest, TheMapIsAsFreshAsTheDecision) {
    LoadPolicy("<usbconfig mode='whitelist'/>");
    UsbDevice::create_usb_device_map();  // before the device is there
    ExpectAnswer(Attach({8}), false);
    EXPECT_EQ(Authorized("1-2:1.0"), "0");
}

TEST_F(DecisionTest, AFailedEnforcementIsNotTold) {
    LoadPolicy("<usbconfig mode='whitelist'/>");
    const DeviceInfo disk = Attach({8});
    RemoveFile(UsbPath("1-2:1.0", "authorized"));
    Expect(disk, false, kNotWhitelisted);
}

TEST_F(DecisionTest, ThePolicyIsFreeWhileAClientIsTold) {
    LoadPolicy("<usbconfig mode='whitelist'/>");
    const sp<RecordingCallback> client = RegisterClient();
    client->on_added = [&](const DeviceInfo&) {
        LoadPolicy("<usbconfig mode='blacklist'/>");  // takes the policy exclusively
    };
    Expect(Attach({8}), false, kNotWhitelisted);
    EXPECT_EQ(Util::getMode(), "blacklist");
}

}  // namespace
}  // namespace android::vus
