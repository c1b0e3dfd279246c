// SPDX-License-Identifier: Apache-2.0
//
// A policy read as a value: what it holds, on which line, and what is left of one that is none.
// What the daemon makes of the same texts (status file, log) is in the loader's tests.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "android/vus/policy.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

Policy Good(const std::string& text) {
    auto parsed = parsePolicy(text);
    if (auto* failure = std::get_if<PolicyFailure>(&parsed)) ADD_FAILURE() << failure->status;
    return std::holds_alternative<Policy>(parsed) ? std::get<Policy>(parsed) : Policy();
}

PolicyFailure Bad(const std::string& text) {
    auto parsed = parsePolicy(text);
    if (std::holds_alternative<Policy>(parsed)) ADD_FAILURE() << "is a policy";
    return std::holds_alternative<PolicyFailure>(parsed) ? std::get<PolicyFailure>(parsed)
                                                         : PolicyFailure();
}

// Each rule as text: what it names, and its line.
std::vector<std::string> RulesOf(const Policy& policy) {
    std::vector<std::string> rules;
    for (const ClassRule& rule : policy.classes) {
        rules.push_back(std::to_string(rule.code) + " " + rule.name + " @" +
                        std::to_string(rule.line));
    }
    for (const VendorRule& rule : policy.vendors) {
        rules.push_back(std::to_string(rule.vendor) + ":" + std::to_string(rule.product) + " @" +
                        std::to_string(rule.line));
    }
    return rules;
}

constexpr char kComplete[] =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
        "<usbconfig\n"
        "    mode=\"whitelist\">\n"
        "  <class>USB_CLASS_MASS_STORAGE</class>\n"
        "  <class>AINPUT_SOURCE_KEYBOARD</class>\n"
        "  <vid vendorid=\"2385\"/>\n"
        "  <vid vendorid=\"1234\">\n"
        "    <pid>22136</pid>\n"
        "    <!-- between --> <pid>4097</pid>\n"
        "  </vid>\n"
        "  <class>USB_CLASS_MASS_STORAGE</class>\n"
        "</usbconfig>\n";

TEST(PolicyValueTest, KnowsWhatItHoldsAndWhere) {
    const Policy policy = Good(kComplete);
    EXPECT_EQ(policy.mode, "whitelist");
    EXPECT_EQ(policy.modeLine, 3);
    EXPECT_THAT(RulesOf(policy),
                ElementsAre("8 USB_CLASS_MASS_STORAGE @4", "256 AINPUT_SOURCE_KEYBOARD @5",
                            "8 USB_CLASS_MASS_STORAGE @11", "1234:22136 @8", "1234:4097 @9",
                            "2385:-1 @6"));
    EXPECT_FALSE(policy.hasNoRules());
}

TEST(PolicyValueTest, RulesOfOneVendorKeepTheOrderOfTheFile) {
    const Policy policy =
            Good("<usbconfig mode='blacklist'><vid vendorid='5'><pid>9</pid><pid>3</pid></vid>"
                 "<vid vendorid='4'/><vid vendorid='5'/><vid vendorid='5'><pid>3</pid></vid>"
                 "</usbconfig>");
    EXPECT_THAT(RulesOf(policy), ElementsAre("4:-1 @1", "5:9 @1", "5:3 @1", "5:-1 @1", "5:3 @1"));
}

TEST(PolicyValueTest, OfTheDefaultModeNothingElseIsRead) {
    const Policy policy = Good("<usbconfig mode='default'><nonsense/><vid/></usbconfig>");
    EXPECT_EQ(policy.mode, "default");
    EXPECT_TRUE(policy.hasNoRules());
}

TEST(PolicyValueTest, AListMayHaveNoRules) {
    EXPECT_TRUE(Good("<usbconfig mode='whitelist'/>").hasNoRules());
    EXPECT_TRUE(Good("<usbconfig mode='blacklist'><!-- none --></usbconfig>").hasNoRules());
}

struct Case {
    const char* what;
    const char* text;
    const char* status;
    int line;
    const char* prefix;
    bool log_first;
};

class PolicyFailureTest : public ::testing::TestWithParam<Case> {};

TEST_P(PolicyFailureTest, HasItsStatusPrefixOrderAndLine) {
    const PolicyFailure failure = Bad(GetParam().text);
    EXPECT_EQ(failure.status, GetParam().status);
    EXPECT_EQ(failure.line, GetParam().line);
    EXPECT_EQ(failure.logPrefix, GetParam().prefix);
    EXPECT_EQ(failure.logFirst, GetParam().log_first);
    EXPECT_TRUE(std::holds_alternative<std::monostate>(failure.library));
}

constexpr Case kCases[] = {
        {"Root", "\n<USBCONFIG/>", "INVALID ROOT ELEMENT : USBCONFIG", 2, "Invalid root element --",
         false},
        {"NoElement", "<!-- only -->", "INVALID ROOT ELEMENT : ", 0, "Invalid root element --",
         false},
        {"NoMode", "\n\n<usbconfig/>", "MODE NOT PRESENT", 3,
         "error in ATTRIBUTE MODE value= ", true},
        {"Mode", "<usbconfig\n mode='x'/>", "INVALID MODE", 2, "Invalid mode is set in xml--",
         false},
        {"Tag", "<usbconfig mode='whitelist'>\n<pid/></usbconfig>", "INVALID TAG:pid", 2,
         "error in class value= ", true},
        {"NoClass", "<usbconfig mode='whitelist'>\n<class/></usbconfig>", "EMPTY CLASS VALUE", 2,
         "error in class val= ", true},
        {"Class", "<usbconfig mode='whitelist'>\n\n<class>8</class></usbconfig>",
         "INVALID CLASS VALUE:8", 3, "error in class val= ", true},
        {"RestrictedClass",
         "<usbconfig mode='whitelist'>\n<class>USB_CLASS_HID</class></usbconfig>",
         "INVALID CLASS VALUE:USB_CLASS_HID", 2, "error in class val= ", true},
        {"NoVendor", "<usbconfig mode='whitelist'>\n<vid/></usbconfig>", "vendorid TAG NOT PRESENT",
         2, "error in ATTRIBUTE value= ", true},
        {"EmptyVendor", "<usbconfig mode='whitelist'>\n<vid vendorid=''/></usbconfig>",
         "EMPTY VENDOR ID VALUE", 2, "error in vid val= ", true},
        {"Vendor", "<usbconfig mode='whitelist'>\n<vid vendorid='0x1'/></usbconfig>",
         "INVALID VENDOR ID VALUE:0x1", 2, "error in vid val= ", true},
        {"VendorTooLarge", "<usbconfig mode='whitelist'>\n<vid vendorid='2147483648'/></usbconfig>",
         "INVALID VENDOR ID VALUE:2147483648", 2, "error in vid val= ", true},
        {"NoProduct", "<usbconfig mode='whitelist'>\n<vid vendorid='1'>\n<pid/></vid></usbconfig>",
         "EMPTY PRODUCT ID VALUE", 3, "error in pid val= ", true},
        {"Product",
         "<usbconfig mode='whitelist'>\n<vid vendorid='1'>\n<pid>1</pid>\n<pid>-1</pid></vid>"
         "</usbconfig>",
         "INVALID PRODUCT ID VALUE:-1", 4, "error in pid val= ", true},
};

INSTANTIATE_TEST_SUITE_P(All, PolicyFailureTest, ::testing::ValuesIn(kCases),
                         [](const auto& each) { return each.param.what; });

TEST(PolicyValueTest, ATextThatIsNoXmlHasTheLibrarysError) {
    const PolicyFailure failure = Bad("<usbconfig mode='whitelist'>\n<class>");
    const auto* error = std::get_if<XmlError>(&failure.library);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->text, failure.status);
    EXPECT_THAT(failure.status, ::testing::StartsWith("Error=" + error->name));
    EXPECT_EQ(failure.line, 2);
    EXPECT_FALSE(failure.hasMode);
    EXPECT_THAT(RulesOf(failure.read), IsEmpty());
}

TEST(PolicyValueTest, AnEmptyTextIsNoPolicy) {
    const PolicyFailure failure = Bad("");
    EXPECT_EQ(std::get<XmlError>(failure.library).name, "XML_ERROR_EMPTY_DOCUMENT");
}

TEST(PolicyValueTest, AFailureKeepsWhatWasReadBeforeIt) {
    const PolicyFailure failure = Bad(
            "<usbconfig mode='whitelist'>\n<class>USB_CLASS_AUDIO</class>\n"
            "<vid vendorid='9'><pid>2</pid><pid>x</pid></vid>\n<vid vendorid='1'/></usbconfig>");
    EXPECT_TRUE(failure.hasMode);
    EXPECT_EQ(failure.read.mode, "whitelist");
    EXPECT_THAT(RulesOf(failure.read), ElementsAre("1 USB_CLASS_AUDIO @2", "9:2 @3"));
}

TEST(PolicyValueTest, AnInvalidModeIsKept) {
    const PolicyFailure failure = Bad("<usbconfig mode='Whitelist'/>");
    EXPECT_TRUE(failure.hasMode);
    EXPECT_EQ(failure.read.mode, "Whitelist");
}

TEST(PolicyValueTest, StepsComeInTheOrderOfTheFile) {
    std::vector<std::string> steps;
    parsePolicy(
            "<usbconfig mode='whitelist'><class>USB_CLASS_AUDIO</class>"
            "<vid vendorid='9'><pid>2</pid></vid><class>USB_CLASS_HUB</class></usbconfig>",
            [&steps](const ParseStep& step) {
                steps.push_back(std::to_string(static_cast<int>(step.kind)) + " " +
                                std::string(step.text) + " " + std::to_string(step.code));
            });
    EXPECT_THAT(steps, ElementsAre("0 whitelist 0", "4  1", "2 9 0", "2 2 0", "3  9"));
}

TEST(PolicyValueTest, DecimalIsDigitsOnly) {
    EXPECT_TRUE(isDecimal("007"));
    for (const char* text : {"", "-1", " 12", "1a", "0x1", "1 "}) EXPECT_FALSE(isDecimal(text));
}

}  // namespace
}  // namespace android::vus
