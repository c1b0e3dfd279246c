// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/cases.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <variant>

namespace android::vus::workbench {
namespace {

constexpr char kDevice[] =
        "\"device\":{\"deviceType\":0,\"vendorId\":1,\"productId\":2,\"interfaceClassList\":[8]}";

std::string ReadCases(const std::string& text, Cases* cases) {
    std::istringstream in(text);
    return readCases(in, "cases.json", cases);
}

TEST(Cases, AreAnObjectOrAList) {
    const std::string one =
            std::string("{\"name\":\"disk\",\"verdict\":\"allowed\",\"line\":4,") + kDevice + "}";
    for (const std::string& text :
         {"{\"policy\":\"p.xml\",\"cases\":[" + one + "]}", "[" + one + "]", one}) {
        Cases cases;
        EXPECT_EQ(ReadCases(text, &cases), "");
        ASSERT_EQ(cases.cases.size(), 1u);
        EXPECT_EQ(cases.cases[0].name, "disk");
        EXPECT_EQ(cases.cases[0].verdict, "allowed");
        EXPECT_EQ(cases.cases[0].line, 4);
        EXPECT_EQ(cases.policy.has_value(), text.find("policy") != std::string::npos);
    }
}

TEST(Cases, NamelessOneIsCalledAfterItsDevice) {
    Cases cases;
    EXPECT_EQ(ReadCases(std::string("{\"verdict\":\"refused\",") + kDevice + "}", &cases), "");
    EXPECT_EQ(cases.cases.at(0).name, "usb 0001:0002 interfaces 8");
}

TEST(Cases, ErrorSaysWhere) {
    const std::string device = kDevice;
    const std::pair<std::string, const char*> wrong[] = {
            {"\n{\"verdict\":\"allowed\"}", "cases.json:2: a device has to be an object"},
            {"{" + device + "}",
             "cases.json:1: verdict has to be \"allowed\", \"refused\" or \"input\""},
            {"{\"verdict\":\"yes\"," + device + "}",
             "cases.json:1: verdict has to be \"allowed\", \"refused\" or \"input\""},
            {"{\"verdict\":\"allowed\",\"line\":\"4\"," + device + "}",
             "cases.json:1: line is not a number"},
            {"{\"verdict\":\"allowed\",\"rule\":4," + device + "}",
             "cases.json:1: rule is not a text"},
            {"{\"cases\":{}}", "cases.json: cases is not a list"},
            {"{\"cases\":[],\"policy\":1}", "cases.json: policy is not a text"},
            {"{\"cases\":[1]}", "cases.json: case 1: a case has to be an object"},
            {"{\"cases\":[]}\n{}", "cases.json:2: there is more behind the cases"},
            {"{\"cases\":[]} x", "cases.json:1: expected an object, which begins with {"},
    };
    for (const auto& [text, error] : wrong) {
        Cases cases;
        EXPECT_EQ(ReadCases(text, &cases), error) << text;
    }
}

Policy TestPolicy() {
    return std::get<Policy>(
            parsePolicy("<usbconfig mode=\"whitelist\">\n"
                        "<class>USB_CLASS_MASS_STORAGE</class>\n"
                        "<vid vendorid=\"1\"/><vid vendorid=\"2\"><pid>3</pid></vid>\n"
                        "</usbconfig>"));
}

Case DiskCase(const std::string& verdict) {
    Case test;
    test.device.claim = {0, {8}, 9, 9};
    test.verdict = verdict;
    return test;
}

TEST(CaseRunner, HoldsVerdictReasonRuleAndLine) {
    const Policy policy = TestPolicy();
    CaseRunner runner(policy);
    Case test = DiskCase("allowed");
    EXPECT_TRUE(runner.run(test).passed);
    test.rule = "class USB_CLASS_MASS_STORAGE";
    test.line = 2;
    test.reason = "Whitelisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE ";
    EXPECT_TRUE(runner.run(test).passed);
    test.line = 3;
    EXPECT_FALSE(runner.run(test).passed);
    test.line.reset();
    test.rule = "vendor 1";
    const CaseResult result = runner.run(test);
    EXPECT_FALSE(result.passed);
    test = DiskCase("refused");
    EXPECT_FALSE(runner.run(test).passed);
    test = DiskCase("allowed");
    test.reason = "x";
    EXPECT_FALSE(runner.run(test).passed);
}

TEST(CaseRunner, TellsBothSidesInTheSameWords) {
    const Policy policy = TestPolicy();
    CaseRunner runner(policy);
    Case test = DiskCase("refused");
    test.rule = "vendor 1";
    const CaseResult result = runner.run(test);
    EXPECT_EQ(result.expected, "refused by vendor 1");
    EXPECT_EQ(result.got, "allowed by class USB_CLASS_MASS_STORAGE");
}

TEST(CaseRunner, RemembersWhichRulesDecided) {
    const Policy policy = TestPolicy();
    CaseRunner runner(policy);
    EXPECT_EQ(runner.untouched().size(), 3u);
    runner.run(DiskCase("refused"));
    Case product;
    product.device.claim = {0, {255}, 2, 3};
    runner.run(product);
    // Answered for another reason: what is left to the input subsystem touches no rule.
    Case hid;
    hid.device.claim = {0, {3}, 1, 1};
    hid.verdict = "input";
    EXPECT_TRUE(runner.run(hid).passed);
    ASSERT_EQ(runner.untouched().size(), 1u);
    EXPECT_EQ(ruleText(runner.untouched()[0]), "vendor 1");
    EXPECT_EQ(runner.untouched()[0].line, 3);
}

TEST(Junit, IsWellFormedWhateverANameHolds) {
    const Policy policy = TestPolicy();
    CaseRunner runner(policy);
    Case good = DiskCase("allowed"), bad = DiskCase("refused");
    good.name = "\"<&\x1b";
    bad.name = "bad";
    EXPECT_EQ(toJunit({runner.run(good), runner.run(bad)}, "a.json"),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<testsuite name=\"a.json\" tests=\"2\" failures=\"1\">\n"
              "    <testcase classname=\"policy\" name=\"&quot;&lt;&amp;?\"/>\n"
              "    <testcase classname=\"policy\" name=\"bad\">\n"
              "        <failure message=\"usb 0009:0009 interfaces 8: expected refused, got "
              "allowed\"/>\n"
              "    </testcase>\n"
              "</testsuite>\n");
}

}  // namespace
}  // namespace android::vus::workbench
