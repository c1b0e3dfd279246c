// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/diff.h"

#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <json/value.h>

#include "tests/support/world.h"
#include "tools/workbench/exit_status.h"
#include "tools/workbench/json.h"

namespace android::vus::workbench {
namespace {

std::string whitelist(const std::string& rules) {
    return "<usbconfig mode=\"whitelist\">\n" + rules + "</usbconfig>\n";
}

class DiffTest : public testing::Test {
  protected:
    void SetUp() override {
        EmptyWorld();
        options_.before = "/data/old.xml";
        options_.after = "/data/new.xml";
    }

    int Diff(const std::string& before, const std::string& after) {
        WriteFile(options_.before, before);
        WriteFile(options_.after, after);
        out_.str("");
        err_.str("");
        return runDiff(options_, out_, err_);
    }

    DiffOptions options_;
    std::ostringstream out_, err_;
};

TEST_F(DiffTest, OtherTextWithTheSameMeaningIsNoDifference) {
    const std::string one = whitelist("<vid vendorid=\"5\"><pid>1</pid><pid>2</pid></vid>\n");
    const std::string other = whitelist(
            "<!-- in another order -->\n<vid vendorid=\"5\"><pid>2</pid></vid>\n"
            "<vid vendorid=\"05\"><pid>1</pid><pid>2</pid></vid>\n");
    options_.noNewAccess = true;
    EXPECT_EQ(Diff(one, other), kClean);
    EXPECT_EQ(out_.str(), "no device is judged differently\n");
    EXPECT_EQ(err_.str(), "");
}

TEST_F(DiffTest, EachDifferenceHasADevice) {
    EXPECT_EQ(Diff(whitelist("<class>USB_CLASS_AUDIO</class>\n"
                             "<vid vendorid=\"100\"><pid>5</pid></vid>\n"),
                   whitelist("<class>USB_CLASS_VIDEO</class>\n"
                             "<vid vendorid=\"100\"><pid>5</pid></vid>\n"
                             "<vid vendorid=\"200\"/>\n")),
              kClean);
    EXPECT_EQ(out_.str(),
              "admitted now, refused before:\n"
              "  USB devices with the class USB_CLASS_VIDEO\n"
              "    for example usb 0001:0001 interfaces 14\n"
              "      before: No matching rule found to Whitelist the device\n"
              "      now:    Whitelisted: Match by ClassName, CLASS : USB_CLASS_VIDEO (line 2)\n"
              "  every product of vendor 200\n"
              "    for example usb 00c8:0001 interfaces 255\n"
              "      before: No matching rule found to Whitelist the device\n"
              "      now:    Whitelisted: Match by VID, VID : 200 (line 4)\n"
              "  every other product of vendor 100\n"
              "    for example usb 0064:0001 interfaces 255\n"
              "      before: No matching rule found to Whitelist the device\n"
              "      now:    Whitelisted: Match by VID, VID : 100 (line 4)\n"
              "refused now, admitted before:\n"
              "  USB devices with the class USB_CLASS_AUDIO\n"
              "    for example usb 0001:0001 interfaces 1\n"
              "      before: Whitelisted: Match by ClassName, CLASS : USB_CLASS_AUDIO (line 2)\n"
              "      now:    No matching rule found to Whitelist the device\n");
    EXPECT_EQ(err_.str(), "");
}

TEST_F(DiffTest, GateOpensForLessAndClosesForMore) {
    const std::string less = whitelist("<vid vendorid=\"5\"><pid>1</pid></vid>\n");
    const std::string more = whitelist("<vid vendorid=\"5\"><pid>1</pid><pid>2</pid></vid>\n");
    options_.noNewAccess = true;
    EXPECT_EQ(Diff(more, less), kClean);
    EXPECT_EQ(Diff(less, more), kRefused);
    EXPECT_EQ(err_.str(), "vusctl: the new policy admits what the old one refused\n");
    EXPECT_NE(out_.str().find("product 2 of vendor 5"), std::string::npos);
    options_.noNewAccess = false;
    EXPECT_EQ(Diff(less, more), kClean);
}

// What one policy admits by class and the other one refuses by vendor.
TEST_F(DiffTest, DeviceThatOnlyBothTogetherTellApartIsFound) {
    options_.noNewAccess = true;
    EXPECT_EQ(Diff("<usbconfig mode=\"blacklist\"><class>USB_CLASS_AUDIO</class></usbconfig>",
                   whitelist("<vid vendorid=\"5\"/>\n")),
              kRefused);
    EXPECT_NE(out_.str().find("admitted now, refused before:\n"
                              "  devices that one policy lists by their class, the other by their "
                              "ids\n"
                              "    for example usb 0005:0001 interfaces 1\n"
                              "      before: Blacklisted: Match by ClassName, CLASS : "
                              "USB_CLASS_AUDIO (line 1)\n"
                              "      now:    Whitelisted: Match by VID, VID : 5 (line 2)\n"),
              std::string::npos)
            << out_.str();
}

TEST_F(DiffTest, KnownDevicesThatAreJudgedDifferentlyAreNamed) {
    WriteFile("/data/list.json",
              "[{\"deviceType\": 0, \"vendorId\": 5, \"productId\": 1, \"deviceName\": \"disk\",\n"
              "  \"interfaceClassList\": [8]},\n"
              " {\"deviceType\": 1, \"vendorId\": 6, \"productId\": 1, \"deviceClass\": 257}]\n");
    options_.devices = "/data/list.json";
    EXPECT_EQ(Diff(whitelist("<class>USB_CLASS_MASS_STORAGE</class>\n"), whitelist("")), kClean);
    EXPECT_NE(out_.str().find("1 of 2 known devices judged differently:\n  refused now: usb "
                              "0005:0001 interfaces 8"),
              std::string::npos)
            << out_.str();
    options_.devices = "/data/none.json";
    EXPECT_EQ(Diff(whitelist(""), whitelist("")), kFailed);
    EXPECT_EQ(err_.str(), "vusctl: cannot read /data/none.json\n");
}

TEST_F(DiffTest, PolicyThatIsNoneIsSaid) {
    EXPECT_EQ(Diff(whitelist("\n<class>8</class>\n"), whitelist("")), kRefused);
    EXPECT_EQ(err_.str(), "vusctl: /data/old.xml:3: INVALID CLASS VALUE:8\n");
    RemoveFile("/data/old.xml");
    EXPECT_EQ(runDiff(options_, out_, err_), kFailed);
}

TEST_F(DiffTest, JsonHoldsAll) {
    options_.json = true;
    std::string rules;
    for (int product = 1; product <= 30; ++product) {
        rules += "<pid>" + std::to_string(product) + "</pid>";
    }
    EXPECT_EQ(Diff(whitelist(""), whitelist("<vid vendorid=\"5\">" + rules + "</vid>\n")), kClean);
    std::string error;
    int line = 0;
    const auto report = parseJson(out_.str(), &error, &line);
    ASSERT_TRUE(report) << error;
    ASSERT_EQ((*report)["differences"].size(), 30U);
    const Json::Value& last = (*report)["differences"][29];
    EXPECT_EQ(last["change"], "admitted");
    EXPECT_EQ(last["what"], "product 30 of vendor 5");
    EXPECT_EQ(last["device"]["productId"], 30);
    EXPECT_EQ(last["before"]["allowed"], false);
    EXPECT_EQ(last["after"]["allowed"], true);
    EXPECT_EQ(last["after"]["lines"][0], 2);
    options_.json = false;
    Diff(whitelist(""), whitelist("<vid vendorid=\"5\">" + rules + "</vid>\n"));
    EXPECT_NE(out_.str().find("  and 10 more (--json has all)\n"), std::string::npos);
}

}  // namespace
}  // namespace android::vus::workbench
