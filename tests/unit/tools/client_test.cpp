// SPDX-License-Identifier: Apache-2.0
//
// vusctl's commands: exact output, exit statuses, and what the daemon is asked.

#include "tools/vusctl/client.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <sstream>

#include <android-base/file.h>
#include <android-base/unique_fd.h>

#include "android/vus/BnVUsbServiceCallback.h"
#include "tests/support/world.h"
#include "tests/unit/tools/client_fixture.h"
#include "tools/common/text.h"

namespace android::vus::ctl {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

TEST_F(ClientTest, HelpGoesToOutputAndWrongUsageToError) {
    EXPECT_EQ(Run({"--help"}), kDone);
    EXPECT_THAT(Out(), StartsWith("usage: vusctl COMMAND [ARGUMENT...]\n"
                                  "       vusctl --version\n"));
    EXPECT_EQ(Err(), "");
    const std::string help = Out();
    for (const Words& words : {Words{"-h"}, Words{"help"}, Words{"policy", "--help"}}) {
        EXPECT_EQ(Run(words), kDone);
        EXPECT_EQ(Out(), help);
    }
    EXPECT_EQ(Run({}), kUsage);
    EXPECT_EQ(Out(), "");
    EXPECT_EQ(Err(), help);
}

TEST_F(ClientTest, HelpNamesEveryCommandInItsColumn) {
    Run({"--help"});
    EXPECT_THAT(Out(),
                HasSubstr("\n  list             the known devices, with verdict and reason\n"));
    for (const Command& command : commands()) {
        EXPECT_THAT(Out(), HasSubstr("\n  " + command.path() + " "));
    }
}

TEST_F(ClientTest, CommandsHelpComesFromItsRow) {
    EXPECT_EQ(Run({"list", "--help"}), kDone);
    EXPECT_EQ(Out(),
              "usage: vusctl list [--json]\n"
              "\n"
              "the known devices, with verdict and reason\n"
              "\n"
              "  --json  for programs\n"
              "\n"
              "With the classes of the interfaces; of an input device its source bits. On a\n"
              "terminal names and reasons are cut to its width; --json has all of them.\n");
    EXPECT_EQ(Run({"help", "undock"}), kDone);
    EXPECT_EQ(Out(),
              "usage: vusctl undock MS\n"
              "\n"
              "undock virtually for that many milliseconds\n");
    EXPECT_EQ(Run({"help", "frob"}), kUsage);
}

TEST_F(ClientTest, WhatHasToBeGivenStandsFirstAndIsNoOption) {
    EXPECT_EQ(Run({"judge", "--help"}), kDone);
    EXPECT_THAT(Out(), StartsWith("usage: vusctl judge --id N [--usb] [--input] [--name TEXT]"));
    EXPECT_EQ(Run({"policy", "explain", "--help"}), kDone);
    EXPECT_THAT(Out(), HasSubstr(" [--id N]"));
}

TEST_F(ClientTest, NoLineOfHelpIsWiderThanATerminal) {
    const auto widest = [this] {
        size_t width = 0;
        std::istringstream lines(Out());
        for (std::string line; std::getline(lines, line);) width = std::max(width, line.size());
        return width;
    };
    Run({"--help"});
    EXPECT_LE(widest(), 80u);
    for (const Command& command : commands()) {
        Words words = {"help", command.name};
        if (*command.sub != '\0') words.push_back(command.sub);
        EXPECT_EQ(Run(words), kDone) << command.path();
        EXPECT_LE(widest(), 80u) << command.path();
    }
}

TEST_F(ClientTest, VersionIsTold) {
    EXPECT_EQ(Run({"--version"}), kDone);
    EXPECT_EQ(Out(), "vusctl 0.1.0\n");
}

TEST_F(ClientTest, OutputThatCannotBeWrittenIsNotDone) {
    out_.setstate(std::ios::badbit);  // a full disk
    EXPECT_EQ(Run({"list"}), kFailed);
    EXPECT_EQ(Err(), "vusctl: cannot write the output\n");
}

struct WrongCall {
    Words words;
    const char* error;
};

TEST_F(ClientTest, WrongUsageIsAnswered) {
    const WrongCall calls[] = {
            {{"frob"}, "unknown command: frob"},
            {{"list", "all"}, "list takes --json or nothing"},
            {{"list", "--json", "--json"}, "list takes --json or nothing"},
            {{"judge"}, "judge takes a device's description"},
            {{"judge", "--vid"}, "--vid needs a value"},
            {{"judge", "--usb"},
             "judge needs an --id of its own: it acts on the real daemon, and the record of an id "
             "stays"},
            {{"judge", "--id", "1", "--vid", "0403"},
             "--vid: 0403 has a leading zero: write 0x0403 for hexadecimal, or 403 for decimal"},
            {{"forget"}, "forget takes the ID of a listed device"},
            {{"forget", "x"}, "not an id: x"},
            {{"record", "a", "b"}, "record takes at most one DIR, --redact and --key FILE"},
            {{"reset", "1"}, "reset takes no argument"},
            {{"undock"}, "undock takes a number of milliseconds above 0"},
            {{"undock", "0"}, "undock takes a number of milliseconds above 0"},
            {{"undock", "-5"}, "undock takes a number of milliseconds above 0"},
            {{"undock", "5s"}, "undock takes a number of milliseconds above 0"},
            {{"watch", "1"}, "watch takes --json or nothing"},
            {{"dump", "a", "b"}, "dump takes at most one argument"},
            {{"policy", "show", "x"}, "policy show takes no argument"},
            {{"policy", "check"}, "policy check takes FILE"},
            {{"policy", "set"}, "policy set takes FILE"},
            {{"judge", "--frob"}, "unknown argument: --frob"},
            {{"frob\x1b[2J"}, "unknown command: frob?[2J"},
            {{"status", "x"}, "status takes --json or nothing"},
    };
    for (const WrongCall& call : calls) {
        EXPECT_EQ(Run(call.words), kUsage) << call.error;
        EXPECT_EQ(Err(), std::string("vusctl: ") + call.error + " (vusctl --help tells more)\n");
        EXPECT_EQ(Out(), "");
    }
    EXPECT_THAT(fake_->Take(), IsEmpty());
}

TEST_F(ClientTest, WrongSubcommandIsAnsweredWithTheChoice) {
    for (const Words& words : {Words{"policy"}, Words{"policy", "drop", "x"}}) {
        EXPECT_EQ(Run(words), kUsage);
        EXPECT_THAT(Err(), StartsWith("vusctl: policy takes: show, set, "));
    }
}

TEST_F(ClientTest, MissingDaemonIsSaid) {
    NoDaemon();
    WriteFile("/data/good.xml", "<usbconfig mode=\"default\"/>");
    const Words calls[] = {{"list"},
                           {"judge", "--id", "5"},
                           {"reset"},
                           {"undock", "5"},
                           {"watch"},
                           {"dump"},
                           {"policy", "set", "/data/good.xml"}};
    for (const Words& words : calls) {
        EXPECT_EQ(Run(words), kNoService) << words[0];
        EXPECT_EQ(Err(), "vusctl: the daemon is not running\n");
        EXPECT_EQ(Out(), "");
    }
}

TEST_F(ClientTest, DaemonThatDiesIsSaid) {
    const RemoteService remote = MakeRemote();
    remote.binder->Die();
    for (const Words& words : {Words{"list"}, Words{"judge", "--id", "5"}, Words{"reset"},
                               Words{"undock", "5"}, Words{"watch"}}) {
        EXPECT_EQ(Run(words), kFailed) << words[0];
        EXPECT_THAT(Err(), StartsWith("vusctl: the daemon did not answer: "));
        EXPECT_EQ(Out(), "");
    }
}

TEST_F(ClientTest, ListIsATable) {
    fake_->devices = {Keyboard(), Disk()};
    EXPECT_EQ(Run({"list"}), kDone);
    EXPECT_EQ(Out(),
              "ID    TYPE   DEVICE     STATUS   CLASSES  NAME            REASON\n"
              "7     input  046d:c31c  refused  0x101    Tastatur \"\xC3\xA4\xC3\xB6\"?  "
              "No matching rule found to Whitelist the device\n"
              "1005  usb    0951:1666  allowed  8,255    Flash Disk      "
              "Whitelisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE\n");
    EXPECT_EQ(Err(), "");
    EXPECT_THAT(fake_->Take(), ElementsAre("list"));
}

TEST_F(ClientTest, ListFitsTheTerminal) {
    DeviceInfo disk = Disk();
    disk.deviceName = std::string(300, 'x');
    disk.interfaceClassList = std::vector<int32_t>(40, 255);
    fake_->devices = {disk};
    terminal_.width = 80;
    EXPECT_EQ(Run({"list"}), kDone);
    EXPECT_EQ(Out(),
              "ID    TYPE  DEVICE     STATUS   CLASSES       NAME      REASON\n"
              "1005  usb   0951:1666  allowed  255,255,2...  xxxxx...  Whitelisted: Match by...\n");
    fake_->devices = {Keyboard(), Disk()};
    for (const size_t width : {60u, 80u, 100u, 132u}) {
        terminal_.width = width;
        Run({"list"});
        std::istringstream lines(Out());
        for (std::string line; std::getline(lines, line);) {
            EXPECT_LE(character_count(line), width) << line;
        }
    }
}

TEST_F(ClientTest, EmptyListIsItsTitles) {
    EXPECT_EQ(Run({"list"}), kDone);
    EXPECT_EQ(Out(), "ID  TYPE  DEVICE  STATUS  CLASSES  NAME  REASON\n");
    EXPECT_EQ(Run({"list", "--json"}), kDone);
    EXPECT_EQ(Out(), "[]\n");
}

TEST_F(ClientTest, JsonListHasEveryField) {
    fake_->devices = {Keyboard(), Disk()};
    EXPECT_EQ(Run({"list", "--json"}), kDone);
    EXPECT_EQ(Out(),
              "[\n"
              "{\"deviceId\":7,\"deviceName\":\"Tastatur \\\"\xC3\xA4\xC3\xB6\\\"\\u000a\","
              "\"deviceType\":1,\"deviceClass\":257,\"interfaceClassList\":[],\"vendorId\":1133,"
              "\"productId\":49948,\"status\":0,"
              "\"reason\":\"No matching rule found to Whitelist the device\","
              "\"category\":0,\"categoryPath\":\"\"},\n"
              "{\"deviceId\":1005,\"deviceName\":\"Flash Disk\",\"deviceType\":0,"
              "\"deviceClass\":0,\"interfaceClassList\":[8,255],\"vendorId\":2385,"
              "\"productId\":5734,\"status\":1,\"reason\":\"Whitelisted: Match by ClassName, "
              "CLASS : USB_CLASS_MASS_STORAGE \",\"category\":4,\"categoryPath\":\"sdcard;\"}\n"
              "]\n");
}

TEST_F(ClientTest, JsonTextIsEscapedWhateverItHolds) {
    DeviceInfo device;
    device.deviceName = std::string("\"\\/\b\x1f\x7f\xff", 7) + std::string(1, '\0');
    fake_->devices = {device};
    EXPECT_EQ(Run({"list", "--json"}), kDone);
    EXPECT_THAT(Out(), HasSubstr("\"deviceName\":\"\\\"\\\\/\\u0008\\u001f\\u007f\xEF\xBF\xBD"
                                 "\\u0000\","));
}

TEST_F(ClientTest, VerdictComesWithItsReason) {
    DeviceInfo disk = Disk();
    fake_->devices = {Keyboard(), disk};
    fake_->allow = [](const DeviceInfo& info) {
        return info.interfaceClassList == std::vector<int32_t>{8, 255} && info.vendorId == 0x951;
    };
    EXPECT_EQ(Run({"judge", "--id", "1005", "--interfaces", "8,255", "--vid", "0x951"}), kDone);
    EXPECT_EQ(Out(), "allowed\nWhitelisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE \n");
    EXPECT_THAT(fake_->Take(), ElementsAre("judge 1005", "list"));

    EXPECT_EQ(Run({"judge", "--input", "--id", "7", "--class", "0x101"}), kRefused);
    EXPECT_EQ(Out(), "not allowed\nNo matching rule found to Whitelist the device\n");
    EXPECT_EQ(Err(),
              "vusctl: the real daemon now lists this device: vusctl forget 7 --input takes it "
              "out\n");
}

TEST_F(ClientTest, VerdictForProgramsIsAnObject) {
    DeviceInfo keyboard = Keyboard();
    keyboard.reason = "because of \x1b";
    fake_->devices = {keyboard};
    const Words judge = {"judge", "--input", "--id", "7", "--class", "0x101", "--json"};
    fake_->allow = [](const DeviceInfo&) { return false; };
    EXPECT_EQ(Run(judge), kRefused);
    EXPECT_EQ(Out(),
              "{\"allowed\":false,\"earlierVerdict\":false,\"listed\":true,"
              "\"reason\":\"because of \\u001b\"}\n");
    EXPECT_THAT(Err(), HasSubstr("vusctl forget 7 --input"));
    fake_->allow = [](const DeviceInfo&) { return true; };
    EXPECT_EQ(Run(judge), kDone);
    EXPECT_THAT(Out(), StartsWith("{\"allowed\":true,\"earlierVerdict\":true,"));
    fake_->devices = {};
    EXPECT_EQ(Run(judge), kDone);
    EXPECT_EQ(Out(), "{\"allowed\":true,\"listed\":false}\n");
    EXPECT_EQ(Err(), "");
}

TEST_F(ClientTest, RecordOfTheOtherKindIsNotTaken) {
    fake_->devices = {Keyboard()};
    EXPECT_EQ(Run({"judge", "--usb", "--id", "7"}), kDone);
    EXPECT_EQ(Out(), "allowed\nnot listed: the daemon allows everything\n");
}

TEST_F(ClientTest, DeviceThatIsNotListedIsExplained) {
    fake_->allow = [](const DeviceInfo&) { return false; };
    EXPECT_EQ(Run({"judge", "--id", "1005", "--interfaces", "3"}), kRefused);
    EXPECT_EQ(Out(), "not allowed\nnot listed: an HID device is judged as an input device\n");
}

TEST_F(ClientTest, EarlierVerdictOfTheIdIsNotTakenForThisOne) {
    fake_->devices = {Disk()};
    fake_->allow = [](const DeviceInfo&) { return false; };
    EXPECT_EQ(Run({"judge", "--id", "1005", "--interfaces", "1"}), kRefused);
    EXPECT_EQ(Out(),
              "not allowed\nlisted with an earlier verdict: Whitelisted: Match by ClassName, "
              "CLASS : USB_CLASS_MASS_STORAGE \n");
}

TEST_F(ClientTest, ResetAndUndockReachTheDaemon) {
    EXPECT_EQ(Run({"reset"}), kDone);
    EXPECT_EQ(Run({"undock", "1500"}), kDone);
    EXPECT_EQ(Out() + Err(), "");
    EXPECT_THAT(fake_->Take(), ElementsAre("reset 0", "reset 1500"));
}

TEST_F(ClientTest, DumpIsWrittenByTheDaemonItself) {
    fake_->dump_text = "USB DEVICE INFO ";
    const int fd = memfd_create("dump", MFD_CLOEXEC);
    for (const Words& words : {Words{"dump"}, Words{"dump", "test"}}) {
        Client client([this] { return found_; }, out_, err_, fd, wait_);
        EXPECT_EQ(client.Run(words), kDone);
    }
    char text[100] = {};
    EXPECT_GT(pread(fd, text, sizeof(text) - 1, 0), 0);
    EXPECT_STREQ(text, "USB DEVICE INFO USB DEVICE INFO ");
    close(fd);
    EXPECT_THAT(fake_->Take(), ElementsAre("dump", "dump test"));
}

TEST_F(ClientTest, DumpCannotRuleTheTerminal) {
    // More than a pipe holds: it is read while the daemon writes.
    const std::string rest(100000, 'x');
    fake_->dump_text = "Device name : \x1b[2J\xE2\x80\xAE\n   next\n" + rest;
    const base::unique_fd fd(memfd_create("dump", MFD_CLOEXEC));
    for (const size_t width : {0u, 80u}) {
        ASSERT_EQ(ftruncate(fd.get(), 0), 0);
        ASSERT_EQ(lseek(fd.get(), 0, SEEK_SET), 0);
        Terminal terminal;
        terminal.width = width;
        Client client([this] { return found_; }, out_, err_, fd.get(), wait_, terminal);
        EXPECT_EQ(client.Run({"dump"}), kDone);
        std::string text;
        ASSERT_EQ(lseek(fd.get(), 0, SEEK_SET), 0);
        ASSERT_TRUE(base::ReadFdToString(fd.get(), &text));
        EXPECT_EQ(text, width == 0 ? fake_->dump_text : "Device name : ?[2J?\n   next\n" + rest);
    }
}

TEST_F(ClientTest, DumpThatFailsIsSaid) {
    MakeRemote();  // its binder has no dump
    EXPECT_EQ(Run({"dump"}), kFailed);
    EXPECT_EQ(Err(), "vusctl: the daemon did not write its dump\n");
}

TEST_F(ClientTest, WatchPrintsWhatComesAndGoesUntilInterrupted) {
    wait_ = [this](int) {
        fake_->Callback()->onDeviceAdded(Disk());
        DeviceInfo refused = Disk();
        refused.status = 0;
        refused.reason = "No matching rule";
        fake_->Callback()->onDeviceAdded(refused);
        DeviceInfo gone = Disk();
        gone.status = 0;
        gone.reason = "";
        fake_->Callback()->onDeviceRemoved(gone);
    };
    EXPECT_EQ(Run({"watch"}), kDone);
    EXPECT_EQ(Out(),
              "added 1005 0951:1666 Flash Disk: allowed: Whitelisted: Match by ClassName, CLASS : "
              "USB_CLASS_MASS_STORAGE \n"
              "added 1005 0951:1666 Flash Disk: refused: No matching rule\n"
              "removed 1005 0951:1666 Flash Disk\n");
    EXPECT_THAT(fake_->Take(), ElementsAre("register", "unregister"));
}

TEST_F(ClientTest, WatchPrintsAnObjectALineAsJson) {
    wait_ = [this](int) {
        DeviceInfo device;
        device.deviceName = "\n";
        fake_->Callback()->onDeviceAdded(device);
        fake_->Callback()->onDeviceRemoved(device);
    };
    EXPECT_EQ(Run({"watch", "--json"}), kDone);
    const std::string record =
            "{\"deviceId\":0,\"deviceName\":\"\\u000a\",\"deviceType\":0,\"deviceClass\":0,"
            "\"interfaceClassList\":[],\"vendorId\":0,\"productId\":0,\"status\":0,\"reason\":\"\","
            "\"category\":0,\"categoryPath\":\"\"}";
    EXPECT_EQ(Out(), "{\"event\":\"added\",\"device\":" + record +
                             "}\n{\"event\":\"removed\",\"device\":" + record + "}\n");
}

TEST_F(ClientTest, WatchEndsWithTheDaemon) {
    const RemoteService remote = MakeRemote();
    wait_ = [&remote](int fd) {
        pollfd source = {fd, POLLIN, 0};
        EXPECT_EQ(poll(&source, 1, 0), 0);
        remote.binder->Die();
        EXPECT_EQ(poll(&source, 1, 0), 1);
    };
    EXPECT_EQ(Run({"watch"}), kNoService);
    EXPECT_EQ(Err(), "vusctl: the daemon has ended\n");
    EXPECT_THAT(fake_->Take(), ElementsAre("register"));
}

TEST_F(ClientTest, WatchIsWithdrawnFromTheDaemonOfAnotherProcess) {
    MakeRemote();
    wait_ = [](int) {};
    EXPECT_EQ(Run({"watch"}), kDone);
    EXPECT_THAT(fake_->Take(), ElementsAre("register", "unregister"));
}

TEST_F(ClientTest, StatusIsOneCleanLine) {
    NoDaemon();
    WriteFile("/data/system/usbdeviceconfig/status.txt", "INVALID CLASS VALUE:a\n\x1b[2J");
    EXPECT_EQ(Run({"status"}), kDone);
    EXPECT_EQ(Out(), "INVALID CLASS VALUE:a??[2J\n");
}

TEST_F(ClientTest, MissingFilesAreSaid) {
    EXPECT_EQ(Run({"status"}), kFailed);
    EXPECT_EQ(Err(),
              "vusctl: cannot read /data/system/usbdeviceconfig/status.txt: "
              "No such file or directory\n");
    EXPECT_EQ(Run({"policy", "show"}), kFailed);
    EXPECT_EQ(Err(),
              "vusctl: cannot read /data/system/usbdeviceconfig/usb_device_config.xml: "
              "No such file or directory\n");
}

TEST_F(ClientTest, PolicyIsShownAsItStands) {
    NoDaemon();
    const std::string policy = "<usbconfig\tmode=\"default\">\n\x80</usbconfig>";
    WriteFile("/data/system/usbdeviceconfig/usb_device_config.xml", policy);
    EXPECT_EQ(Run({"policy", "show"}), kDone);
    EXPECT_EQ(Out(), policy);
}

TEST_F(ClientTest, PolicyIsCheckedWithoutTheDaemon) {
    NoDaemon();
    WriteFile("/data/good.xml", "<usbconfig mode=\"default\"/>");
    EXPECT_EQ(Run({"policy", "check", "/data/good.xml"}), kDone);
    EXPECT_EQ(Out(), "SUCCESS\n");
}

}  // namespace
}  // namespace android::vus::ctl
