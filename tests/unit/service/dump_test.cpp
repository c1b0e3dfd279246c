// SPDX-License-Identifier: Apache-2.0
//
// The diagnostic dump, byte for byte.

#include <fcntl.h>

#include <android-base/unique_fd.h>

#include "android/vus/daemon.h"
#include "service_fixture.h"
#include "tests/support/child_process.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;

class DumpTest : public ServiceTest {
  protected:
    std::string DeviceText(const DeviceInfo& info) {
        return TextWrittenBy([&](int fd) { service_->dumpPrint(fd, info); });
    }
};

TEST_F(DumpTest, WithoutDevicesThereIsOnlyTheHead) {
    EXPECT_EQ(DumpText(), "USB DEVICE INFO ");
    EXPECT_THAT(logs_.Lines(),
                ElementsAre("I mInputDeviceInfoList size 0mUsbDeviceInfoList size 0"));
}

TEST_F(DumpTest, EveryDeviceIsPrintedInputDevicesFirst) {
    DeviceInfo disk = UsbDeviceInfo(1002, {8, 255}, "Disk");
    disk.vendorId = 2385;
    disk.productId = 5734;
    service_->addDeviceList(disk, true, "Enabled by default rule");
    service_->addDeviceList(InputDevice(9, 0x2103, "Mouse"), false, "No");
    service_->addDeviceList(InputDevice(3, 0x101, "Kbd"), true, "Yes");
    EXPECT_EQ(DumpText(),
              "USB DEVICE INFO "
              "\nDevice name : Kbd"
              "\n   Device type(1=HID/0=Non-HID) : 1"
              "\n   DeviceID : 3"
              "\n   Device class name : AINPUT_SOURCE_KEYBOARD;"
              "\n   Restricted class name : <none>"
              "\n   Device Vendor Id : 0"
              "\n   Device Product Id : 0"
              "\n   Device status(1-enabled/0-disabled): 1"
              "\n   Reason : Yes\n"
              "\nDevice name : Mouse"
              "\n   Device type(1=HID/0=Non-HID) : 1"
              "\n   DeviceID : 9"
              "\n   Device class name : AINPUT_SOURCE_KEYBOARD;AINPUT_SOURCE_MOUSE;"
              "\n   Restricted class name : <none>"
              "\n   Device Vendor Id : 0"
              "\n   Device Product Id : 0"
              "\n   Device status(1-enabled/0-disabled): 0"
              "\n   Reason : No\n"
              "\nDevice name : Disk"
              "\n   Device type(1=HID/0=Non-HID) : 0"
              "\n   DeviceID : 1002"
              "\n   Device class name : USB_CLASS_MASS_STORAGE;"
              "\n   Restricted class name : USB_CLASS_VENDOR_SPEC;"
              "\n   Device Vendor Id : 2385"
              "\n   Device Product Id : 5734"
              "\n   Device status(1-enabled/0-disabled): 1"
              "\n   Reason : Enabled by default rule\n");
}

TEST_F(DumpTest, TheDeviceIdIsPrintedUnsignedAndTheRestSigned) {
    DeviceInfo info = UsbDeviceInfo(-1, {8});
    info.vendorId = -2;
    info.productId = -3;
    info.status = -4;
    const std::string text = DeviceText(info);
    EXPECT_THAT(text, HasSubstr("\n   DeviceID : 4294967295\n"));
    EXPECT_THAT(text, HasSubstr("\n   Device Vendor Id : -2\n"));
    EXPECT_THAT(text, HasSubstr("\n   Device Product Id : -3\n"));
    EXPECT_THAT(text, HasSubstr("\n   Device status(1-enabled/0-disabled): -4\n"));
}

TEST_F(DumpTest, AllClassesRestricted) {
    EXPECT_THAT(DeviceText(UsbDeviceInfo(1, {3, 255})),
                HasSubstr("\n   Device class name : <none>"
                          "\n   Restricted class name : USB_CLASS_HID;USB_CLASS_VENDOR_SPEC;\n"));
}

TEST_F(DumpTest, NoClassRestricted) {
    EXPECT_THAT(DeviceText(UsbDeviceInfo(1, {8, 1})),
                HasSubstr("\n   Device class name : USB_CLASS_MASS_STORAGE;USB_CLASS_AUDIO;"
                          "\n   Restricted class name : <none>\n"));
}

TEST_F(DumpTest, NoClassAtAll) {
    EXPECT_THAT(DeviceText(UsbDeviceInfo(1, {})),
                HasSubstr("\n   Device class name : \n   Restricted class name : <none>\n"));
}

TEST_F(DumpTest, AClassIsNamedOnce) {
    EXPECT_THAT(DeviceText(UsbDeviceInfo(1, {8, 255, 8, 255})),
                HasSubstr("\n   Device class name : USB_CLASS_MASS_STORAGE;"
                          "\n   Restricted class name : USB_CLASS_VENDOR_SPEC;\n"));
}

TEST_F(DumpTest, AClassWithoutANameIsABlank) {
    EXPECT_THAT(DeviceText(UsbDeviceInfo(1, {4, 12})), HasSubstr("\n   Device class name :  ;\n"));
}

TEST_F(DumpTest, AnInputDeviceWithoutSourcesNamesNone) {
    EXPECT_THAT(DeviceText(InputDevice(1, 0x01)),
                HasSubstr("\n   Device class name : \n   Restricted class name : <none>\n"));
}

TEST_F(DumpTest, AnInputDevicesInterfacesDoNotMatter) {
    DeviceInfo info = InputDevice(1, 0x101);
    info.interfaceClassList = {8, 255};
    EXPECT_THAT(DeviceText(info), HasSubstr("\n   Device class name : AINPUT_SOURCE_KEYBOARD;"
                                            "\n   Restricted class name : <none>\n"));
}

TEST_F(DumpTest, ADeviceIsLoggedInOrder) {
    DeviceInfo disk = UsbDeviceInfo(1002, {8}, "Disk");
    disk.deviceClass = 239;
    disk.vendorId = 2385;
    disk.productId = 5734;
    DeviceText(disk);
    EXPECT_THAT(Messages(),
                ElementsAre("Dump DeviceInfo:= { DeviceId:1002, DeviceName: Disk, ClassName: "
                            "USB_CLASS_MISC[ 239] , VendorId: 2385, ProductId: 5734 }",
                            "dumpPrint--USB_CLASS_MASS_STORAGE", "restrictedClassList is null",
                            "interfaceClassListStr USB_CLASS_MASS_STORAGE;"));
    EXPECT_TRUE(logs_.Errors().empty());
}

TEST_F(DumpTest, ADeviceWithRestrictedClassesOnlyIsLoggedSo) {
    DeviceText(UsbDeviceInfo(1, {255}));
    EXPECT_THAT(logs_.Lines(), Contains("I interfaceClassListStr is null"));
    EXPECT_THAT(Messages(), Contains("interfaceClassListStr <none>"));
    EXPECT_THAT(Messages(), Not(Contains("restrictedClassList is null")));
}

TEST_F(DumpTest, TheArgumentTestPrintsTheMap) {
    const std::string text = DumpText({"test", "more"});
    EXPECT_THAT(text, StartsWith("USB Test \n"));
    EXPECT_THAT(text, HasSubstr("\n\nDeviceIdMap size0\n"));
    EXPECT_EQ(Messages().front(), "args[0] istest");
}

TEST_F(DumpTest, AnyOtherArgumentPrintsNothing) {
    service_->addDeviceList(UsbDeviceInfo(1, {8}), true, "");
    for (const char* argument : {"TEST", "tes", "test ", "", "--help"}) {
        logs_.Clear();
        EXPECT_EQ(DumpText({argument, "test"}), "") << argument;
        EXPECT_THAT(logs_.Lines(), ElementsAre("I args[0] is" + std::string(argument)));
    }
}

TEST_F(DumpTest, WriteErrorsAreIgnored) {
    service_->addDeviceList(UsbDeviceInfo(1, {8}), true, "");
    const base::unique_fd full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    ASSERT_GE(full.get(), 0);
    EXPECT_EQ(service_->dump(full.get(), {}), OK);
}

TEST_F(DumpTest, ACallerThatStoppedReadingDoesNotEndTheDaemon) {
    ExpectPassesInChild([&] {
        ignoreBrokenPipes();
        base::unique_fd reader;
        base::unique_fd writer;
        ASSERT_TRUE(base::Pipe(&reader, &writer));
        reader.reset();
        EXPECT_EQ(service_->dump(writer.get(), {}), OK);
    });
}

}  // namespace
}  // namespace android::vus
