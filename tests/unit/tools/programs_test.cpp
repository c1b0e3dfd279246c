// SPDX-License-Identifier: Apache-2.0
//
// The programs themselves, on a machine without binder: what they print and how they end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>

#include <filesystem>

#include "tests/support/world.h"
#include "tools/common/service_finder.h"

namespace android::vus {
namespace {

constexpr char kNoBinder[] = "/dev/binder: No such file or directory";

struct Outcome {
    int status;
    std::string output, error;
};

// Runs one of our programs, which are beside this one.
Outcome RunProgram(const std::string& call) {
    const auto folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const std::string command = folder.string() + "/" + call + " >/tmp/output 2>/tmp/error";
    const int status = system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile("/tmp/output"),
            ReadFile("/tmp/error")};
}

TEST(FindService, SaysAtOnceThatThereIsNoBinder) {
    const FoundService found = find_service();
    EXPECT_EQ(found.service, nullptr);
    EXPECT_EQ(found.why_not, kNoBinder);
}

TEST(Programs, EndWithoutBinder) {
    for (const char* call : {"vusctl list", "vusctl judge --id 1", "vusctl watch"}) {
        const Outcome outcome = RunProgram(call);
        EXPECT_EQ(outcome.status, 3) << call;
        EXPECT_EQ(outcome.error, std::string("vusctl: ") + kNoBinder + "\n");
    }
    for (const char* call : {"vus_hotplug", "vus_hotplug --once --verbose"}) {
        const Outcome outcome = RunProgram(call);
        EXPECT_EQ(outcome.status, 1) << call;
        EXPECT_EQ(outcome.error, std::string("vus_hotplug: ") + kNoBinder + "\n");
    }
}

// A kernel that lacks the module, or a start at which it could not be loaded.
TEST(Programs, GateIsShutWithoutBinder) {
    const std::string usb = "/sys/bus/usb/drivers_autoprobe",
                      hid = "/sys/bus/hid/drivers_autoprobe",
                      bus = "/sys/bus/usb/devices/usb1/interface_authorized_default";
    const auto switches = [&] { return ReadFile(usb) + ReadFile(hid) + ReadFile(bus); };
    for (const std::string& file : {usb, hid, bus}) WriteFile(file, "1");
    for (const char* open : {"vus_hotplug --fail-closed", "vus_hotplug --gate"}) {
        EXPECT_EQ(RunProgram(open).status, 1);
        EXPECT_EQ(switches(), "111") << open;
    }
    for (const char* once : {"", " --once"}) {
        const std::string call = std::string("vus_hotplug --gate --fail-closed") + once;
        const Outcome outcome = RunProgram(call);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.error, std::string("vus_hotplug: ") + kNoBinder + "\n");
        EXPECT_EQ(switches(), "000") << call;
        for (const std::string& file : {usb, hid, bus}) WriteFile(file, "1");
    }
    EmptyWorld();
}

TEST(Programs, PrintTheirUsage) {
    for (const char* program : {"vusctl", "vus_hotplug"}) {
        const Outcome help = RunProgram(std::string(program) + " --help");
        EXPECT_EQ(help.status, 0);
        EXPECT_EQ(help.output.rfind(std::string("usage: ") + program, 0), 0u) << help.output;
        EXPECT_EQ(help.error, "");
        const Outcome wrong = RunProgram(std::string(program) + " --frob");
        EXPECT_EQ(wrong.status, 2);
        EXPECT_EQ(wrong.output, "");
        EXPECT_NE(wrong.error, "");
    }
}

TEST(Programs, PrintOneVersion) {
    const Outcome first = RunProgram("vusctl --version");
    EXPECT_THAT(first.output, testing::MatchesRegex("vusctl [0-9]+\\.[0-9]+\\.[0-9]+\n"));
    EXPECT_EQ(first.status, 0);
    const Outcome second = RunProgram("vus_hotplug --version");
    EXPECT_EQ(second.output, "vus_hotplug" + first.output.substr(strlen("vusctl")));
    EXPECT_EQ(second.status, 0);
}

TEST(Programs, CheckPoliciesWithoutBinder) {
    WriteFile("/tmp/policy.xml", "<usbconfig mode=\"x\"/>");
    const Outcome checked = RunProgram("vusctl policy check /tmp/policy.xml");
    EXPECT_EQ(checked.status, 1);
    EXPECT_EQ(checked.output,
              "INVALID MODE\n"
              "/tmp/policy.xml:1: error: the daemon rejects this policy\n"
              "    found:        \"x\"\n"
              "    did you mean: whitelist, blacklist or default\n");
    EXPECT_EQ(checked.error, "");
}

}  // namespace
}  // namespace android::vus
