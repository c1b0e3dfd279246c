// SPDX-License-Identifier: Apache-2.0
//
// The commands that look into the machine: why, verify, record, forget, status, and set with people
// before it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "android/vus/paths.h"
#include "tests/support/usb_tree.h"
#include "tests/unit/tools/client_fixture.h"
#include "tests/unit/tools/fake_watcher.h"

namespace android::vus::ctl {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kStorage[] =
        "<usbconfig mode=\"whitelist\">\n<class>USB_CLASS_MASS_STORAGE</class>\n</usbconfig>\n";
constexpr char kKeyboards[] =
        "<usbconfig mode=\"whitelist\">\n<class>AINPUT_SOURCE_KEYBOARD</class>\n</usbconfig>\n";

class InspectTest : public ClientTest {
  protected:
    void InForce(const std::string& policy) {
        WriteFile(kPolicyFile, policy);
        WriteFile(kPolicyBackupFile, policy);
    }

    // The disk as sysfs shows it: device 1-2 with the id 1005, two interfaces, one of them bound.
    void AttachDisk(const char* authorized) {
        FakeDevice disk = {0x0951, 0x1666, "Maker", "Flash Disk", {{8}, {0xff}}, 0, "A-77"};
        disk.interfaces[0].driver = "usb-storage";
        UsbTree().AddDevice("1-2", disk, 5);
        for (const char* interface : {"1-2:1.0", "1-2:1.1"}) {
            WriteFile(UsbPath(interface, "authorized"), authorized);
        }
    }
};

TEST_F(InspectTest, WhyTellsTheWalkOfAListedDevice) {
    fake_->devices = {Keyboard(), Disk()};
    InForce(kStorage);
    EXPECT_EQ(Run({"why", "1005"}), kDone);
    EXPECT_EQ(Out(),
              "usb 0951:1666 interfaces 8,255 \"Flash Disk\"\n"
              "  allowed by line 2\n"
              "  Whitelisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE\n"
              "    interface 0: 8 USB_CLASS_MASS_STORAGE: listed, line 2\n"
              "    interface 1: 255 USB_CLASS_VENDOR_SPEC: restricted, rides along\n");
    EXPECT_EQ(Run({"why", "1005", "--input"}), kRefused);
    EXPECT_EQ(Err(), "vusctl: not listed: 1005\n");
    EXPECT_EQ(Run({"why", "7", "--json"}), kDone);
    EXPECT_THAT(Out(), HasSubstr("\"listed\":\"refused\""));
}

TEST_F(InspectTest, WhySaysThatAnEarlierVerdictWasKept) {
    fake_->devices = {Disk()};
    InForce(kKeyboards);
    EXPECT_EQ(Run({"why", "1005"}), kDone);
    EXPECT_THAT(Out(), HasSubstr("  but the list says allowed: an earlier verdict, which is kept "
                                 "until the device\n  is plugged in again\n"));
}

TEST_F(InspectTest, WhyNeedsAPolicyThatIsKnownToBeInForce) {
    fake_->devices = {Disk()};
    EXPECT_EQ(Run({"why", "1005"}), kFailed);
    EXPECT_THAT(Err(), StartsWith("vusctl: no policy was loaded yet"));
}

TEST_F(InspectTest, StatusComparesTheDiskWithWhatIsInForce) {
    NoDaemon();
    WriteFile(kStatusFile, "SUCCESS");
    InForce(kStorage);
    EXPECT_EQ(Run({"status"}), kDone);
    EXPECT_EQ(Out(), "SUCCESS\n");
    // The daemon ends the last line of its copy.
    WriteFile(kPolicyFile, std::string(kStorage).substr(0, sizeof(kStorage) - 2));
    EXPECT_EQ(Run({"status"}), kDone);
    WriteFile(kPolicyFile, kKeyboards);
    EXPECT_EQ(Run({"status"}), kRefused);
    EXPECT_EQ(Out(),
              "SUCCESS\n"
              "the file on disk is not the policy in force, which the backup holds: vusctl\n"
              "policy set puts a file in force\n");
    WriteFile(kPolicyFile, "");
    EXPECT_EQ(Run({"status"}), kRefused);
    EXPECT_THAT(Out(), HasSubstr("the file on disk is no policy"));
}

TEST_F(InspectTest, StatusForProgramsNamesWhatIsOnDisk) {
    NoDaemon();
    WriteFile(kStatusFile, "SUCCESS");
    InForce(kStorage);
    EXPECT_EQ(Run({"status", "--json"}), kDone);
    EXPECT_EQ(Out(), "{\n  \"onDisk\" : \"in force\",\n  \"status\" : \"SUCCESS\"\n}\n");
    WriteFile(kPolicyFile, kKeyboards);
    EXPECT_EQ(Run({"status", "--json"}), kRefused);
    EXPECT_THAT(Out(), HasSubstr("\"onDisk\" : \"not in force\""));
    EXPECT_THAT(Out(), HasSubstr("\"message\" : \"the file on disk is not the policy in force"));
    WriteFile(kPolicyFile, "");
    EXPECT_EQ(Run({"status", "--json"}), kRefused);
    EXPECT_THAT(Out(), HasSubstr("\"onDisk\" : \"no policy\""));
    RemoveFile(kPolicyFile);
    RemoveFile(kStatusFile);
    EXPECT_EQ(Run({"status", "--json"}), kFailed);
    EXPECT_THAT(Out(), HasSubstr("\"onDisk\" : \"unknown\""));
    EXPECT_THAT(Out(), HasSubstr("\"message\" : \"cannot read /data"));
    EXPECT_EQ(Err(), "");
}

TEST_F(InspectTest, VerifyFindsNothingWhereTheListIsTrue) {
    fake_->devices = {Disk()};
    AttachDisk("1\n");
    EXPECT_EQ(Run({"verify"}), kDone);
    EXPECT_EQ(Out(), "1 listed, 0 differences\n");
}

TEST_F(InspectTest, VerifyTellsWhatARefusedDeviceStillHas) {
    DeviceInfo disk = Disk();
    disk.status = 0;
    DeviceInfo gone = Disk();
    gone.deviceId = 1009;
    fake_->devices = {disk, gone, Keyboard()};
    AttachDisk("1\n");
    EXPECT_EQ(Run({"verify"}), kRefused);
    EXPECT_EQ(Out(),
              "1005 usb 0951:1666 interfaces 8,255 \"Flash Disk\"\n"
              "  refused, but 1-2:1.0 is authorized\n"
              "1005 usb 0951:1666 interfaces 8,255 \"Flash Disk\"\n"
              "  refused, but 1-2:1.0 is bound to usb-storage\n"
              "1005 usb 0951:1666 interfaces 8,255 \"Flash Disk\"\n"
              "  refused, but 1-2:1.1 is authorized\n"
              "1009 usb 0951:1666 interfaces 8,255 \"Flash Disk\"\n"
              "  listed, but not attached\n"
              "7 input 046d:c31c sources 0x101 \"Tastatur \"\xC3\xA4\xC3\xB6\"?\"\n"
              "  listed, but not attached\n"
              "3 listed, 5 differences\n");
}

TEST_F(InspectTest, VerifyTellsOfAnAllowedDeviceThatIsSwitchedOffAndOfOneThatIsNotListed) {
    fake_->devices = {Disk()};
    AttachDisk("0\n");
    EXPECT_EQ(Run({"verify", "--json"}), kRefused);
    EXPECT_THAT(Out(), HasSubstr("\"difference\":\"allowed, but 1-2:1.0 is switched off\"}\n"));
    fake_->devices = {};
    EXPECT_EQ(Run({"verify"}), kRefused);
    EXPECT_THAT(Out(), HasSubstr("  attached, but not listed\n0 listed, 1 differences\n"));
}

TEST_F(InspectTest, RecordingIsAListOfThisMachinesDevices) {
    NoDaemon();
    AttachDisk("1\n");
    EXPECT_EQ(Run({"record"}), kDone);
    const std::string recording =
            "{\"deviceClass\":0,\"deviceId\":1005,\"deviceName\":\"Flash Disk\",\"deviceType\":0,"
            "\"interfaceClassList\":[8,255],\"productId\":5734,\"productName\":\"Flash Disk\","
            "\"serial\":\"A-77\",\"vendorHid\":false,\"vendorId\":2385,\"vendorName\":\"Maker\"}\n";
    EXPECT_EQ(Out(), recording);
    EXPECT_EQ(Run({"record", "/data/desk"}), kDone);
    EXPECT_EQ(Out(), "/data/desk/devices.json\n");
    EXPECT_EQ(ReadFile("/data/desk/devices.json"), recording);
    EXPECT_EQ(Run({"record", "/data/none/desk"}), kFailed);
    EXPECT_EQ(Err(), "vusctl: cannot make /data/none/desk: No such file or directory\n");
}

TEST_F(InspectTest, RecordingOfAMachineWithoutSysfsIsNone) {
    EXPECT_EQ(Run({"record", "/data/desk"}), kFailed);
    EXPECT_THAT(Err(), HasSubstr("holds no sysfs"));
    EXPECT_FALSE(std::filesystem::exists("/data/desk/devices.json"));
    EXPECT_EQ(Run({"record"}), kFailed);
}

TEST_F(InspectTest, RedactedRecordingTellsNobodysNames) {
    AttachDisk("1\n");
    EXPECT_EQ(Run({"record", "--redact", "/data/desk"}), kDone);
    const std::string recording = ReadFile("/data/desk/devices.json");
    EXPECT_THAT(recording, testing::MatchesRegex(".*\"deviceName\":\"name [0-9a-f]{32}\".*"
                                                 "\"serial\":\"serial [0-9a-f]{32}\".*"
                                                 "\"vendorName\":\"vendor [0-9a-f]{32}\"}\n"));
    for (const char* text : {"Flash Disk", "A-77", "Maker"}) {
        EXPECT_THAT(recording, testing::Not(HasSubstr(text)));
    }
    // Two recordings cannot be joined, unless somebody wants them to be.
    EXPECT_EQ(Run({"record", "--redact"}), kDone);
    EXPECT_NE(Out(), recording);
    WriteFile("/data/key", std::string(32, 'k'));
    EXPECT_EQ(Run({"record", "--redact", "--key", "/data/key"}), kDone);
    const std::string keyed = Out();
    EXPECT_EQ(Run({"record", "--redact", "--key", "/data/key", "/data/desk"}), kDone);
    EXPECT_EQ(ReadFile("/data/desk/devices.json"), keyed);
    WriteFile("/data/key", std::string(32, 'K'));
    EXPECT_EQ(Run({"record", "--redact", "--key", "/data/key"}), kDone);
    EXPECT_NE(Out(), keyed);
}

TEST_F(InspectTest, NothingIsRecordedWithoutTheKeyThatWasAskedFor) {
    AttachDisk("1\n");
    const auto record = [this](const char* key) {
        return Run({"record", "--redact", "--key", key, "/data/desk"});
    };
    EXPECT_EQ(record("/data/none"), kFailed);
    EXPECT_EQ(Err(), "vusctl: cannot read /data/none: No such file or directory\n");
    EXPECT_EQ(record("/data"), kFailed);
    EXPECT_EQ(Err(), "vusctl: cannot read /data: Is a directory\n");
    for (const size_t length : {0u, 31u, 4097u}) {
        WriteFile("/data/key", std::string(length, 'k'));
        EXPECT_EQ(record("/data/key"), kFailed);
        EXPECT_EQ(Err(), "vusctl: no key: /data/key: it takes 32 to 4096 bytes\n");
    }
    EXPECT_FALSE(std::filesystem::exists("/data/desk"));
    WriteFile("/data/key", std::string(4096, 'k'));
    EXPECT_EQ(record("/data/key"), kDone);
    EXPECT_EQ(Run({"record", "--key", "/data/key"}), kUsage);
    EXPECT_EQ(Err(), "vusctl: --key is for --redact (vusctl --help tells more)\n");
}

TEST_F(InspectTest, ForgetTakesOutWhatIsNoDevice) {
    fake_->devices = {Keyboard(), Disk()};
    EXPECT_EQ(Run({"forget", "1005"}), kDone);
    EXPECT_THAT(fake_->Take(), ElementsAre("list", "update 1005 0"));
    EXPECT_EQ(Run({"forget", "7"}), kRefused);
    EXPECT_EQ(Err(), "vusctl: not listed: 7\n");
    EXPECT_EQ(Run({"forget", "7", "--input"}), kDone);
    EXPECT_THAT(fake_->Take(), ElementsAre("list", "list", "update 7 0"));
    AttachDisk("1\n");
    EXPECT_EQ(Run({"forget", "1005"}), kRefused);
    EXPECT_EQ(Err(), "vusctl: not forgotten: 1005 is attached; unplug it instead\n");
    EXPECT_THAT(fake_->Take(), ElementsAre("list"));
}

class SetTest : public InspectTest {
  protected:
    void SetUp() override {
        InspectTest::SetUp();
        fake_->devices = {Keyboard(), Disk()};
        fake_->devices[0].status = 1;
        WriteFile("/data/storage.xml", kStorage);
        WriteFile(kPolicyFile, "before");
    }
    int SetWithAnswer(const std::string& answer) {
        answers_.str(answer);
        terminal_.answers = &answers_;
        return Run({"policy", "set", "/data/storage.xml"});
    }
    std::istringstream answers_;
};

constexpr char kPreview[] =
        "1 of 2 attached devices will be refused:\n"
        "  input 046d:c31c sources 0x101 \"Tastatur \"\xC3\xA4\xC3\xB6\"?\" (a keyboard)\n"
        "warning: no keyboard is left\n";

TEST_F(SetTest, PeopleSeeWhatChangesAndMaySayNo) {
    for (const char* answer : {"n\n", "\n", "", "yours\n"}) {
        answers_.clear();
        EXPECT_EQ(SetWithAnswer(answer), kRefused);
        EXPECT_EQ(Err(), std::string(kPreview) + "Put it in force? [y/N] vusctl: not set\n");
        EXPECT_EQ(Out(), "");
        EXPECT_EQ(ReadFile(kPolicyFile), "before");
    }
}

TEST_F(SetTest, PeopleWhoSayYesAreObeyed) {
    const FakeWatcher watcher({"SUCCESS"});
    EXPECT_EQ(SetWithAnswer("y\n"), kDone);
    EXPECT_EQ(Err(), std::string(kPreview) + "Put it in force? [y/N] ");
    EXPECT_EQ(Out(), "SUCCESS\n");
    EXPECT_EQ(ReadFile(kPolicyFile), kStorage);
}

TEST_F(SetTest, YesShowsAndDoesNotAsk) {
    const FakeWatcher watcher({"SUCCESS"});
    terminal_.answers = &answers_;
    EXPECT_EQ(Run({"policy", "set", "/data/storage.xml", "--yes"}), kDone);
    EXPECT_EQ(Err(), kPreview);
    EXPECT_EQ(Out(), "SUCCESS\n");
}

TEST_F(SetTest, ScriptIsNeitherAskedNorToldMore) {
    const FakeWatcher watcher({"SUCCESS"});
    EXPECT_EQ(Run({"policy", "set", "/data/storage.xml"}), kDone);
    EXPECT_EQ(Err(), "");
    EXPECT_EQ(Out(), "SUCCESS\n");
    EXPECT_THAT(fake_->Take(), IsEmpty());
}

TEST_F(SetTest, PreviewTellsOfDevicesThatComeBackToo) {
    const FakeWatcher watcher({"SUCCESS"});
    fake_->devices[0].status = 0;
    fake_->devices[1].status = 0;
    EXPECT_EQ(Run({"policy", "set", "/data/storage.xml", "--yes"}), kDone);
    EXPECT_EQ(Err(),
              "1 of 2 attached devices will be allowed:\n"
              "  usb 0951:1666 interfaces 8,255 \"Flash Disk\"\n"
              "warning: no keyboard is left\n");
}

TEST_F(SetTest, BadPolicyIsNotEvenShown) {
    WriteFile("/data/bad.xml", "<usbconfig mode=\"x\"/>");
    terminal_.answers = &answers_;
    EXPECT_EQ(Run({"policy", "set", "/data/bad.xml"}), kRefused);
    EXPECT_EQ(Err(), "vusctl: not set, the policy would be rejected: INVALID MODE\n");
}

TEST_F(SetTest, JsonTellsWhatBecameOfIt) {
    terminal_.answers = &answers_;  // programs are not asked
    {
        const FakeWatcher watcher({"SUCCESS"});
        EXPECT_EQ(Run({"policy", "set", "/data/storage.xml", "--json"}), kDone);
    }
    EXPECT_EQ(Out(), "{\n  \"answer\" : \"SUCCESS\",\n  \"inForce\" : true\n}\n");
    EXPECT_EQ(Err(), "");
    {
        const FakeWatcher watcher({"INVALID MODE"});
        EXPECT_EQ(Run({"policy", "set", "/data/storage.xml", "--json"}), kRefused);
    }
    EXPECT_EQ(Out(), "{\n  \"answer\" : \"INVALID MODE\",\n  \"inForce\" : false\n}\n");
    WriteFile("/data/bad.xml", "<usbconfig mode=\"whitelist\"><class>\x1b</class></usbconfig>");
    EXPECT_EQ(Run({"policy", "set", "/data/bad.xml", "--json"}), kRefused);
    EXPECT_EQ(Out(),
              "{\n  \"inForce\" : false,\n  \"message\" : \"not set, the policy would be "
              "rejected: INVALID CLASS VALUE:?\"\n}\n");
    EXPECT_EQ(Err(), "");
}

}  // namespace
}  // namespace android::vus::ctl
