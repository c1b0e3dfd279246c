// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/check.h"

#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <json/value.h>

#include "tests/support/world.h"
#include "tools/workbench/exit_status.h"
#include "tools/workbench/json.h"

namespace android::vus::workbench {
namespace {

constexpr char kPolicy[] = "/data/policy.xml";
constexpr char kCleanText[] =
        "<usbconfig mode=\"whitelist\">\n<vid vendorid=\"2385\"><pid>5734</pid></vid>\n"
        "</usbconfig>\n";
constexpr char kTwoFindings[] =
        "<usbconfig mode=\"whitelist\">\n"
        "<vid vendorid=\"100\"><pid>5</pid></vid>\n"
        "<vid vendorid=\"0200\"/>\n"
        "</usbconfig>\n";
constexpr char kRejectedText[] =
        "<usbconfig mode=\"whitelist\">\n<class> USB_CLASS_AUDIO\n</class>\n</usbconfig>\n";

class KnownToAll final : public VendorNames {
  public:
    std::optional<std::string> nameOf(int32_t) const override { return "Example Devices"; }
};

class CheckTest : public testing::Test {
  protected:
    void SetUp() override { EmptyWorld(); }

    int Check(const std::string& text, Format format = Format::kText) {
        WriteFile(kPolicy, text);
        options_.path = kPolicy;
        options_.format = format;
        out_.str("");
        return runCheck(options_, names_, out_, err_);
    }
    Json::Value CheckAsJson(const std::string& text, Format format) {
        Check(text, format);
        std::string error;
        int line = 0;
        const auto value = parseJson(out_.str(), &error, &line);
        EXPECT_TRUE(value) << error << "\n" << out_.str();
        return value.value_or(Json::Value());
    }

    const KnownToAll known_{};
    const VendorNames* names_ = &known_;
    CheckOptions options_;
    std::ostringstream out_, err_;
};

TEST_F(CheckTest, CleanPolicyIsASuccess) {
    options_.strict = true;
    EXPECT_EQ(Check(kCleanText), 0);
    EXPECT_EQ(out_.str(), "SUCCESS\n");
    EXPECT_EQ(err_.str(), "");
}

TEST_F(CheckTest, FindingsHaveLineDeviceAndAdvice) {
    EXPECT_EQ(Check(kTwoFindings), 0);
    EXPECT_EQ(out_.str(),
              "SUCCESS\n"
              "/data/policy.xml:2: error: products-count-as-whole\n"
              "    Vendor 100 is listed by product, but every product of it matches: vendor 200\n"
              "    (line 3) is listed whole and has a higher number.\n"
              "    device:  usb 0064:0001 interfaces 255\n"
              "             allowed: Whitelisted: Match by VID, VID : 100\n"
              "    instead: List vendor 200 by product too, and every other whole vendor above\n"
              "             100; or, if all products of 100 are meant, write <vid\n"
              "             vendorid=\"100\"/>.\n"
              "/data/policy.xml:3: warning: leading-zero\n"
              "    The vendor id 0200 is read as the decimal number 200.\n"
              "    device:  usb 00c8:0001 interfaces 255\n"
              "             allowed: Whitelisted: Match by VID, VID : 200\n"
              "    instead: Write 200 if that is meant. If it was copied from lsusb, which\n"
              "             prints hexadecimal, write 512.\n"
              "2 findings: 1 error, 1 warning\n");
}

TEST_F(CheckTest, StrictEndsWithFive) {
    options_.strict = true;
    EXPECT_EQ(Check(kTwoFindings), kFindings);
    options_.allowed = {"leading-zero"};
    EXPECT_EQ(Check(kTwoFindings), kFindings);
    EXPECT_EQ(out_.str().find("leading-zero"), std::string::npos);
    options_.allowed = {"leading-zero", "products-count-as-whole"};
    EXPECT_EQ(Check(kTwoFindings), 0);
    EXPECT_EQ(out_.str(), "SUCCESS\n");
}

TEST_F(CheckTest, RejectionShowsTheTextAndWhatWasMeant) {
    EXPECT_EQ(Check(kRejectedText), kRefused);
    EXPECT_EQ(out_.str(),
              "INVALID CLASS VALUE: USB_CLASS_AUDIO?\n"
              "/data/policy.xml:2: error: the daemon rejects this policy\n"
              "    found:        \"\u00B7USB_CLASS_AUDIO\u21B5\"\n"
              "                  (\u00B7 blank, \u2192 tab, \u21B5 line end)\n"
              "    did you mean: USB_CLASS_AUDIO, without the blanks around it\n");
}

TEST_F(CheckTest, WithoutADatabaseItIsSaidThatVendorsWereNotLookedUp) {
    names_ = nullptr;
    EXPECT_EQ(Check(kCleanText), 0);
    EXPECT_EQ(out_.str(),
              "SUCCESS\n(vendors not looked up: this system has no database of USB ids)\n");
    EXPECT_EQ(Check("<usbconfig mode=\"default\"/>"), 0);
    EXPECT_EQ(out_.str(), "SUCCESS\n");
}

TEST_F(CheckTest, ManyOfAKindAreCounted) {
    std::string text = "<usbconfig mode=\"whitelist\">\n<vid vendorid=\"900\"/>\n";
    for (int vendor = 100; vendor < 112; ++vendor) {
        text += "<vid vendorid=\"" + std::to_string(vendor) + "\"><pid>5</pid></vid>\n";
    }
    EXPECT_EQ(Check(text + "</usbconfig>"), 0);
    const std::string end =
            "and 2 more: products-count-as-whole (--format json has all)\n12 findings: 12 errors\n";
    EXPECT_EQ(out_.str().substr(out_.str().size() - end.size()), end);
    EXPECT_EQ(CheckAsJson(text + "</usbconfig>", Format::kJson)["findings"].size(), 12U);
}

TEST_F(CheckTest, FileThatCannotBeReadIsSaid) {
    options_.path = "/data/none.xml";
    EXPECT_EQ(runCheck(options_, names_, out_, err_), kFailed);
    EXPECT_EQ(err_.str(), "vusctl: cannot read /data/none.xml: No such file or directory\n");
    EXPECT_EQ(out_.str(), "");
}

TEST_F(CheckTest, NothingOfTheFileRulesTheTerminal) {
    Check("<usbconfig mode=\"whitelist\">\n<class>\x1B[2J\xC2\x9B\u202E</class></usbconfig>");
    Check("<usbconfig mode=\"whitelist\" a\u202E=\"\">\n<vid "
          "vendorid=\"1\"><p\u009B>5</p\u009B></vid>"
          "\x1B[2J</usbconfig>");
    for (const char* escape : {"\x1B", "\xC2\x9B", "\u202E"}) {
        EXPECT_EQ(out_.str().find(escape), std::string::npos);
    }
}

TEST_F(CheckTest, JsonHoldsAll) {
    const Json::Value report = CheckAsJson(kTwoFindings, Format::kJson);
    EXPECT_EQ(report["file"], kPolicy);
    EXPECT_EQ(report["accepted"], true);
    EXPECT_EQ(report["status"], "SUCCESS");
    EXPECT_EQ(report["vendorsLookedUp"], true);
    ASSERT_EQ(report["findings"].size(), 2U);
    const Json::Value& finding = report["findings"][1];
    EXPECT_EQ(finding["rule"], "leading-zero");
    EXPECT_EQ(finding["level"], "warning");
    EXPECT_EQ(finding["line"], 3);
    EXPECT_EQ(finding["message"], "The vendor id 0200 is read as the decimal number 200.");
    EXPECT_EQ(finding["device"]["vendorId"], 200);
    EXPECT_EQ(finding["allowed"], true);
    EXPECT_EQ(finding["reason"], "Whitelisted: Match by VID, VID : 200");
    const Json::Value rejection = CheckAsJson(kRejectedText, Format::kJson);
    EXPECT_EQ(rejection["accepted"], false);
    EXPECT_EQ(rejection["status"], "INVALID CLASS VALUE: USB_CLASS_AUDIO\n");
    EXPECT_EQ(rejection["rejection"]["line"], 2);
    EXPECT_EQ(rejection["rejection"]["found"], " USB_CLASS_AUDIO\n");
}

// What the format's schema requires of a log with results.
void expectSarif(const Json::Value& log) {
    EXPECT_EQ(log["version"], "2.1.0");
    ASSERT_EQ(log["runs"].size(), 1U);
    const Json::Value& driver = log["runs"][0]["tool"]["driver"];
    EXPECT_EQ(driver["name"], "vusctl");
    std::set<std::string> ids;
    for (const Json::Value& rule : driver["rules"]) {
        ids.insert(rule["id"].asString());
        EXPECT_FALSE(rule["shortDescription"]["text"].asString().empty());
    }
    EXPECT_EQ(ids.size(), lintRules().size() + 1);
    ASSERT_TRUE(log["runs"][0]["results"].isArray());
    for (const Json::Value& result : log["runs"][0]["results"]) {
        EXPECT_EQ(ids.count(result["ruleId"].asString()), 1U);
        EXPECT_FALSE(result["message"]["text"].asString().empty());
        const std::string level = result["level"].asString();
        EXPECT_TRUE(level == "error" || level == "warning" || level == "note");
        ASSERT_EQ(result["locations"].size(), 1U);
        const Json::Value& place = result["locations"][0]["physicalLocation"];
        EXPECT_EQ(place["artifactLocation"]["uri"], "/data/policy.xml");
        if (place.isMember("region")) {
            EXPECT_GE(place["region"]["startLine"].asInt(), 1);
        }
    }
}

TEST_F(CheckTest, SarifHasWhatTheFormatRequires) {
    const Json::Value found = CheckAsJson(kTwoFindings, Format::kSarif);
    expectSarif(found);
    ASSERT_EQ(found["runs"][0]["results"].size(), 2U);
    EXPECT_EQ(found["runs"][0]["results"][0]["ruleId"], "products-count-as-whole");
    const Json::Value rejected = CheckAsJson(kRejectedText, Format::kSarif);
    expectSarif(rejected);
    ASSERT_EQ(rejected["runs"][0]["results"].size(), 1U);
    EXPECT_EQ(rejected["runs"][0]["results"][0]["ruleId"], "rejected");
    expectSarif(CheckAsJson("", Format::kSarif));
    const Json::Value clean = CheckAsJson(kCleanText, Format::kSarif);
    expectSarif(clean);
    EXPECT_EQ(clean["runs"][0]["results"].size(), 0U);
}

TEST(SarifTest, PathIsAUriReference) {
    const std::string log =
            toSarif("a dir/\xC3\xA4%:.xml", nullptr, {{&lintRules()[0], 1, "", "", {}, true, ""}});
    EXPECT_NE(log.find("\"a%20dir/%C3%A4%25%3A.xml\""), std::string::npos) << log;
}

}  // namespace
}  // namespace android::vus::workbench
