// SPDX-License-Identifier: Apache-2.0
//
// What vusctl tells of policies without a daemon.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/usb_tree.h"
#include "tests/unit/tools/client_fixture.h"
#include "tools/workbench/json.h"

namespace android::vus::ctl {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char kPolicy[] =
        "<usbconfig mode=\"whitelist\">\n"
        "<class>USB_CLASS_MASS_STORAGE</class>\n"
        "<vid vendorid=\"1133\"/>\n"
        "</usbconfig>\n";
constexpr char kDisk[] =
        "{\"deviceType\":0,\"vendorId\":2385,\"productId\":5734,\"interfaceClassList\":[8],"
        "\"deviceName\":\"Disk\"}";
constexpr char kKeyboard[] =
        "{\"deviceType\":0,\"vendorId\":1,\"productId\":2,\"interfaceClassList\":[3],"
        "\"deviceName\":\"Keyboard\",\"vendorHid\":false}";

Json::Value Parsed(const std::string& text) {
    std::string error;
    int line = 0;
    const auto value = workbench::parseJson(text, &error, &line);
    EXPECT_TRUE(value) << error << ": " << text;
    return value.value_or(Json::Value());
}

class WorkbenchTest : public ClientTest {
  protected:
    void SetUp() override {
        ClientTest::SetUp();
        NoDaemon();
        WriteFile("/data/policy.xml", kPolicy);
        WriteFile("/data/bad.xml",
                  "<usbconfig mode=\"whitelist\">\n<class>\x1b</class></usbconfig>");
    }
};

TEST_F(WorkbenchTest, ExplainsADescribedDevice) {
    EXPECT_EQ(Run({"policy", "explain", "/data/policy.xml", "--vid", "0x0951", "--pid", "0x1666",
                   "--interfaces", "8"}),
              kDone);
    EXPECT_EQ(Out(),
              "usb 0951:1666 interfaces 8\n"
              "  allowed by line 2\n"
              "  Whitelisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE\n"
              "    interface 0: 8 USB_CLASS_MASS_STORAGE: listed, line 2\n");
    EXPECT_EQ(Err(), "");
}

TEST_F(WorkbenchTest, ExplainsAListAndSumsItUp) {
    WriteFile("/data/list.json", std::string("[") + kDisk + ",\n" + kKeyboard + "]");
    EXPECT_EQ(Run({"policy", "explain", "/data/policy.xml", "--list", "/data/list.json"}), kDone);
    EXPECT_THAT(Out(), HasSubstr("\n\n2 devices: 1 allowed, 0 refused, 1 left to the input "
                                 "subsystem\n"));
    EXPECT_EQ(Run({"policy", "explain", "/data/policy.xml", "--list", "/data/list.json", "--json"}),
              kDone);
    const std::string lines = Out();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 2);
    EXPECT_THAT(Out(), HasSubstr("\"verdict\":\"input\"}\n"));
}

TEST_F(WorkbenchTest, ExplainReadsATree) {
    UsbTree("/data/tree/sys").AddDevice("1-2", {0x046d, 1, "", "", {{0xff}}});
    EXPECT_EQ(Run({"policy", "explain", "/data/policy.xml", "--tree", "/data/tree"}), kDone);
    EXPECT_EQ(Out(),
              "usb 046d:0001 interfaces 255 \"046d:0001\"\n"
              "  allowed by line 3\n"
              "  Whitelisted: Match by VID, VID : 1133\n"
              "    interface 0: 255 USB_CLASS_VENDOR_SPEC: restricted, rides along\n"
              "    vendor 1133 (0x046d): listed whole, line 3\n");
    EXPECT_EQ(Run({"policy", "explain", "/data/policy.xml", "--tree", "/data"}), kFailed);
    EXPECT_EQ(Err(),
              "vusctl: /data: holds no sysfs: neither bus/usb/devices nor class/input is there\n");
}

TEST_F(WorkbenchTest, ExplainSaysWhatIsWrong) {
    EXPECT_EQ(Run({"policy", "explain", "/data/policy.xml"}), kUsage);
    EXPECT_EQ(Run({"policy", "explain", "/data/bad.xml", "--live"}), kRefused);
    EXPECT_EQ(Err(), "vusctl: /data/bad.xml:2: INVALID CLASS VALUE:?\n");
    EXPECT_EQ(Run({"policy", "explain", "/data/none.xml", "--live"}), kFailed);
    EXPECT_EQ(Err(), "vusctl: cannot read /data/none.xml: No such file or directory\n");
    EXPECT_EQ(Run({"policy", "explain", "/data/policy.xml", "--list", "/data/none.json"}), kFailed);
    EXPECT_EQ(Err(), "vusctl: cannot read /data/none.json: No such file or directory\n");
    EXPECT_EQ(Run({"policy", "explain", "/data/policy.xml", "--list", "/data"}), kFailed);
    EXPECT_EQ(Err(), "vusctl: cannot read /data: Is a directory\n");
    WriteFile("/data/list.json", "\n[1]");
    EXPECT_EQ(Run({"policy", "explain", "/data/policy.xml", "--list", "/data/list.json"}), kFailed);
    EXPECT_EQ(Err(), "vusctl: /data/list.json:2: expected an object, which begins with {\n");
    EXPECT_EQ(Run({"policy", "explain", "/data/policy.xml", "--vid", "0403"}), kUsage);
}

TEST_F(WorkbenchTest, ExplainWritesAPage) {
    WriteFile("/data/list.json", std::string(kDisk) + "\n" + kKeyboard);
    const Words call = {"policy",   "explain", "/data/policy.xml", "--list", "/data/list.json",
                        "--format", "html"};
    EXPECT_EQ(Run(call), kDone);
    EXPECT_THAT(Out(), StartsWith("<!DOCTYPE html>"));
    EXPECT_THAT(Out(), HasSubstr("<td class=\"number\" data-key=\"2\"><span>line 2</span></td>"));
    EXPECT_THAT(Out(), EndsWith("<p>2 devices: 1 allowed, 0 refused, 1 left to the input "
                                "subsystem</p>\n</body>\n</html>\n"));
    EXPECT_EQ(Err(), "");
    // What is cut off says so; of nothing there is no page.
    WriteFile("/data/list.json", std::string(kDisk) + "\n?");
    EXPECT_EQ(Run(call), kFailed);
    EXPECT_THAT(Out(), HasSubstr("Not every device is here"));
    EXPECT_THAT(Out(), EndsWith("</html>\n"));
    WriteFile("/data/list.json", "?");
    EXPECT_EQ(Run(call), kFailed);
    EXPECT_EQ(Out(), "");
    WriteFile("/data/list.json", "");
    EXPECT_EQ(Run(call), kDone);
    EXPECT_THAT(Out(), HasSubstr("<p>0 devices: 0 allowed"));
}

TEST_F(WorkbenchTest, FormatIsOneOfThree) {
    const Words calls[] = {{"policy", "explain", "/data/policy.xml", "--vid", "1"},
                           {"policy", "diff", "/data/policy.xml", "/data/policy.xml"}};
    for (Words words : calls) {
        words.insert(words.end(), {"--format", "pdf"});
        EXPECT_EQ(Run(words), kUsage);
        EXPECT_EQ(Err(), "vusctl: --format is text, json or html (vusctl --help tells more)\n");
        EXPECT_EQ(Out(), "");
        words.back() = "html";
        EXPECT_EQ(Run(words), kDone);
        EXPECT_THAT(Out(), StartsWith("<!DOCTYPE html>"));
        words.back() = "json";
        EXPECT_EQ(Run(words), kDone);
        EXPECT_THAT(Out(), StartsWith("{"));
    }
}

TEST_F(WorkbenchTest, TestTellsBothSidesOfAFailure) {
    WriteFile("/data/cases/cases.json",
              std::string("{\"policy\":\"../policy.xml\",\"cases\":[\n"
                          "{\"name\":\"disk\",\"verdict\":\"allowed\",\"rule\":\"class "
                          "USB_CLASS_MASS_STORAGE\",\"device\":") +
                      kDisk + "},\n{\"name\":\"keys\",\"verdict\":\"allowed\",\"device\":" +
                      kKeyboard + "}]}");
    EXPECT_EQ(Run({"policy", "test", "/data/cases/cases.json", "--coverage", "--junit",
                   "/data/junit.xml"}),
              kRefused);
    EXPECT_EQ(Out(),
              "ok    disk\n"
              "FAIL  keys\n"
              "      device: usb 0001:0002 interfaces 3 \"Keyboard\"\n"
              "      expected: allowed\n"
              "      got: input\n"
              "2 cases: 1 passed, 1 failed\n"
              "no case for line 3: vendor 1133\n"
              "coverage: 1 of 2 rules (50 %)\n");
    EXPECT_THAT(ReadFile("/data/junit.xml"), HasSubstr("<testsuite name=\"/data/cases/cases.json\" "
                                                       "tests=\"2\" failures=\"1\">"));
}

TEST_F(WorkbenchTest, TestHoldsTheThreshold) {
    WriteFile("/data/cases.json",
              std::string("{\"verdict\":\"allowed\",\"device\":") + kDisk + "}");
    const Words call = {"policy", "test", "/data/cases.json", "--policy", "/data/policy.xml"};
    EXPECT_EQ(Run(call), kDone);
    EXPECT_EQ(Out(), "ok    usb 0951:1666 interfaces 8 \"Disk\"\n1 cases: 1 passed, 0 failed\n");
    const auto with = [&call](const std::string& threshold) {
        Words words = call;
        words.insert(words.end(), {"--threshold", threshold});
        return words;
    };
    EXPECT_EQ(Run(with("50")), kDone);
    EXPECT_EQ(Run(with("51")), kRefused);
    EXPECT_THAT(Out(), HasSubstr("coverage: 1 of 2 rules (50 %)\nthat is less than 51 %\n"));
    EXPECT_EQ(Run(with("101")), kUsage);
    EXPECT_EQ(Run({"policy", "test", "/data/cases.json"}), kUsage);
    WriteFile("/data/cases.json", "{}");
    EXPECT_EQ(Run(call), kFailed);
    EXPECT_EQ(Err(), "vusctl: /data/cases.json:1: a device has to be an object\n");
}

TEST_F(WorkbenchTest, TestForProgramsHasEachCase) {
    WriteFile("/data/cases.json",
              std::string("{\"verdict\":\"allowed\",\"name\":\"disk\",\"device\":") + kDisk +
                      "}\n{\"verdict\":\"allowed\",\"name\":\"k\\u001b\",\"device\":" + kKeyboard +
                      "}");
    EXPECT_EQ(Run({"policy", "test", "/data/cases.json", "--policy", "/data/policy.xml", "--json",
                   "--threshold", "51"}),
              kRefused);
    const Json::Value report = Parsed(Out());
    EXPECT_EQ(report["passed"], 1);
    EXPECT_EQ(report["failed"], 1);
    ASSERT_EQ(report["cases"].size(), 2u);
    EXPECT_EQ(report["cases"][0]["name"], "disk");
    EXPECT_EQ(report["cases"][0]["passed"], true);
    EXPECT_EQ(report["cases"][0]["device"]["productId"], 5734);
    EXPECT_EQ(report["cases"][1]["name"], "k\x1b");
    EXPECT_EQ(report["cases"][1]["expected"], "allowed");
    EXPECT_EQ(report["cases"][1]["got"], "input");
    EXPECT_EQ(report["coverage"]["rules"], 2);
    EXPECT_EQ(report["coverage"]["touched"], 1);
    EXPECT_EQ(report["coverage"]["percent"], 50);
    EXPECT_EQ(report["coverage"]["untouched"][0]["line"], 3);
    EXPECT_EQ(report["coverage"]["untouched"][0]["rule"], "vendor 1133");
    EXPECT_EQ(Out().find('\x1b'), std::string::npos);
}

TEST_F(WorkbenchTest, LearnForProgramsHasPolicyAndWarnings) {
    WriteFile("/data/list.json", std::string(kDisk) + "\n" + kKeyboard);
    EXPECT_EQ(Run({"policy", "learn", "--list", "/data/list.json"}), kDone);
    const std::string policy = Out();
    EXPECT_EQ(Run({"policy", "learn", "--list", "/data/list.json", "--json"}), kDone);
    const Json::Value report = Parsed(Out());
    EXPECT_EQ(report["policy"], policy);
    EXPECT_EQ(report["complete"], true);
    EXPECT_EQ(report["warnings"].size(), 2u);
    EXPECT_EQ(Err(), "");
}

TEST_F(WorkbenchTest, ImportForProgramsHasWhatIsLeftOut) {
    WriteFile("/data/rules.conf", "allow 04b8:0e15\nallow 046d:c31c serial \"\x1b[2J\"\n");
    EXPECT_EQ(Run({"policy", "import", "/data/rules.conf", "--json"}), kRefused);
    const Json::Value report = Parsed(Out());
    EXPECT_THAT(report["policy"].asString(), HasSubstr("<pid>3605</pid>"));
    EXPECT_EQ(report["imported"], 1);
    ASSERT_EQ(report["leftOut"].size(), 1u);
    EXPECT_EQ(report["leftOut"][0]["line"], 2);
    EXPECT_THAT(report["leftOut"][0]["why"].asString(), HasSubstr("serial"));
    EXPECT_EQ(Err(), "");
    EXPECT_EQ(Run({"policy", "import", "/data/rules.conf", "--json", "--loose"}), kDone);
    EXPECT_EQ(Parsed(Out())["warnings"].size(), 1u);
}

TEST_F(WorkbenchTest, LearnWritesThePolicyToTheOutputAndWarningsToTheError) {
    WriteFile("/data/list.json", std::string(kDisk) + "\n" + kKeyboard);
    EXPECT_EQ(Run({"policy", "learn", "--list", "/data/list.json"}), kDone);
    EXPECT_EQ(Out(),
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
              "<usbconfig mode=\"whitelist\">\n"
              "    <vid vendorid=\"2385\">\n"
              "        <!-- 0951:1666 Disk -->\n"
              "        <pid>5734</pid>\n"
              "    </vid>\n"
              "</usbconfig>\n");
    EXPECT_EQ(Err(),
              "warning: 1 of 2 devices have nothing but HID interfaces and need no rule on the\n"
              "USB side: make sure that their input devices are in the list, too\n"
              "warning: ids are a device's own claim: whatever claims one of these is admitted,\n"
              "with any interfaces\n");
}

TEST_F(WorkbenchTest, LearnWritesNoPolicyOfHalfAList) {
    WriteFile("/data/list.json", std::string(kDisk) + "\n?");
    EXPECT_EQ(Run({"policy", "learn", "--list", "/data/list.json"}), kFailed);
    EXPECT_EQ(Out(), "");
    EXPECT_EQ(Run({"policy", "learn"}), kUsage);
}

TEST_F(WorkbenchTest, ImportTellsWhatItLeavesOut) {
    WriteFile("/data/rules.conf", "allow 04b8:0e15\nallow 046d:c31c serial \"\x1b[2J\"\npermit\n");
    EXPECT_EQ(Run({"policy", "import", "/data/rules.conf"}), kRefused);
    EXPECT_EQ(Out(),
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
              "<usbconfig mode=\"whitelist\">\n"
              "    <vid vendorid=\"1208\">\n"
              "        <!-- line 1: allow 04b8:0e15 -->\n"
              "        <pid>3605</pid>\n"
              "    </vid>\n"
              "</usbconfig>\n");
    EXPECT_EQ(Err(),
              "2: allow 046d:c31c serial \"?[2J\"\n"
              "  left out: no rule of ours looks at: serial (--loose imports the id alone)\n"
              "3: permit\n"
              "  left out: a rule begins with allow, block or reject\n"
              "1 rules imported, 2 left out\n");
    WriteFile("/data/rules.conf", "allow 046d:c31c serial \"x\"");
    EXPECT_EQ(Run({"policy", "import", "/data/rules.conf", "--loose"}), kDone);
    EXPECT_EQ(Err(),
              "warning: line 1: imported by its id alone, without: serial\n"
              "1 rules imported, 0 left out\n");
    EXPECT_EQ(Run({"policy", "import", "/data/none"}), kFailed);
}

}  // namespace
}  // namespace android::vus::ctl
