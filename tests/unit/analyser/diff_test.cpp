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
    options_.format = ReportFormat::kJson;
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
    options_.format = ReportFormat::kText;
    Diff(whitelist(""), whitelist("<vid vendorid=\"5\">" + rules + "</vid>\n"));
    EXPECT_NE(out_.str().find("  and 10 more (--json has all)\n"), std::string::npos);
}

TEST_F(DiffTest, PageHasEachDifferenceAndEachKnownDevice) {
    options_.format = ReportFormat::kHtml;
    options_.devices = "/data/list.json";
    WriteFile("/data/list.json",
              "{\"deviceType\":0,\"vendorId\":2385,\"productId\":1,\"interfaceClassList\":[1],"
              "\"deviceName\":\"<b>Headset</b>\"}\n"
              "{\"deviceType\":0,\"vendorId\":2385,\"productId\":2,\"interfaceClassList\":[7]}\n");
    std::string rules;
    for (int product = 1; product <= 30; ++product) {
        rules += "<vid vendorid=\"5\"><pid>" + std::to_string(product) + "</pid></vid>\n";
    }
    EXPECT_EQ(Diff(whitelist(rules), whitelist("<class>USB_CLASS_AUDIO</class>\n")), kClean);
    const std::string page = out_.str();
    EXPECT_NE(page.find("<title>What changes from /data/old.xml to /data/new.xml</title>"),
              std::string::npos);
    const auto count = [&page](const std::string& part) {
        size_t found = 0;
        for (size_t at = 0; (at = page.find(part, at)) != std::string::npos; ++at) ++found;
        return found;
    };
    // A page has room for all.
    EXPECT_EQ(count("<tr class=\"refused\"><td class=\"choice\"><strong>refused</strong></td>"),
              30U);
    EXPECT_EQ(count("<tr class=\"allowed\"><td class=\"choice\"><strong>admitted</strong></td>"),
              2U);
    EXPECT_EQ(count("<span>USB devices with the class USB_CLASS_AUDIO</span>"), 1U);
    EXPECT_EQ(count("<p>1 of 2 known devices judged differently</p>"), 1U);
    EXPECT_EQ(count("<span>&lt;b&gt;Headset&lt;/b&gt;</span>"), 1U);
    EXPECT_EQ(count("<table>"), 2U);
}

TEST_F(DiffTest, PageOfNoDifferenceSaysSo) {
    options_.format = ReportFormat::kHtml;
    EXPECT_EQ(Diff(whitelist(""), whitelist("")), kClean);
    EXPECT_NE(out_.str().find("<p>No device is judged differently.</p>\n</body>"),
              std::string::npos);
}

}  // namespace
}  // namespace android::vus::workbench
