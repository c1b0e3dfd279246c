// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/import.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <variant>

#include "android/vus/judge.h"
#include "android/vus/policy.h"
#include "tools/workbench/rule_language.h"

namespace android::vus::workbench {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Policy PolicyOf(const ImportedPolicy& imported) {
    const auto read = parsePolicy(imported.text);
    EXPECT_TRUE(std::holds_alternative<Policy>(read)) << imported.text;
    return std::holds_alternative<Policy>(read) ? std::get<Policy>(read) : Policy();
}

std::string WhyNot(const std::string& text, bool loose = false) {
    const ImportedPolicy imported = importRules(text, loose);
    PolicyOf(imported);
    return imported.left_out.empty() ? "" : imported.left_out.back().why;
}

TEST(Import, TakesIdsAndVendors) {
    const ImportedPolicy imported = importRules(
            "# of the tills\n"
            "allow 04b8:0e15\n"
            "\n"
            "allow id { 05e0:1200 05e0:1300 }  # scanners\n"
            "allow id one-of { 046d:* }\n"
            "block\n",
            /*loose=*/false);
    EXPECT_THAT(imported.left_out, IsEmpty());
    EXPECT_THAT(imported.warnings, IsEmpty());
    EXPECT_EQ(imported.rules, 3u);
    EXPECT_EQ(imported.text,
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
              "<usbconfig mode=\"whitelist\">\n"
              "    <!-- line 5: allow id one-of { 046d:* } -->\n"
              "    <vid vendorid=\"1133\"/>\n"
              "    <vid vendorid=\"1208\">\n"
              "        <!-- line 2: allow 04b8:0e15 -->\n"
              "        <pid>3605</pid>\n"
              "    </vid>\n"
              "    <vid vendorid=\"1504\">\n"
              "        <!-- line 4: allow id { 05e0:1200 05e0:1300 }  # scanners -->\n"
              "        <pid>4608</pid>\n"
              "        <!-- line 4: allow id { 05e0:1200 05e0:1300 }  # scanners -->\n"
              "        <pid>4864</pid>\n"
              "    </vid>\n"
              "</usbconfig>\n");
}

TEST(Import, LeavesOutWhatCannotBeSaid) {
    EXPECT_EQ(WhyNot("allow"), "it allows everything: that is mode default, or a blacklist");
    EXPECT_EQ(WhyNot("allow *:*"), "it allows everything: that is mode default, or a blacklist");
    EXPECT_EQ(WhyNot("allow name \"x\" serial \"y\""), "no rule of ours looks at: name, serial");
    EXPECT_EQ(WhyNot("allow 1234:5678 serial \"y\" if allowed-matches(id 1:2)"),
              "no rule of ours looks at: serial, if (--loose imports the id alone)");
    EXPECT_EQ(WhyNot("allow with-interface equals { 08:06:50 }"),
              "a class of ours lets restricted interfaces ride along, and any number of them: it "
              "would admit more");
    EXPECT_EQ(WhyNot("allow with-interface one-of { 03:00:01 03:01:01 }"),
              "HID devices are judged as input devices: list their sources, such as "
              "AINPUT_SOURCE_KEYBOARD");
    EXPECT_EQ(WhyNot("allow id none-of { 1234:5678 }"),
              "a device has one id: only one-of can be said of ids");
}

// A device that lies about its serial number is forbidden there, and would be admitted here.
TEST(Import, RuleBehindOneThatForbidsAPartOfItIsLeftOut) {
    EXPECT_EQ(WhyNot("block 1234:5678 serial \"x\"\nallow 1234:*"),
              "line 1 forbids a part of it, and no rule of ours says except");
    EXPECT_EQ(WhyNot("reject with-interface one-of { 08:*:* }\nallow 1234:5678"),
              "line 1 forbids a part of it, and no rule of ours says except");
    EXPECT_EQ(WhyNot("block 1234:5679\nallow 1234:5678"), "");
    EXPECT_EQ(WhyNot("allow 1234:5678\nblock 1234:*"), "");
}

TEST(Import, ProductsBelowAWholeVendorAreLeftOut) {
    const ImportedPolicy imported =
            importRules("allow 0010:0001\nallow 0020:*\nallow 0030:0001", false);
    ASSERT_EQ(imported.left_out.size(), 1u);
    EXPECT_EQ(imported.left_out[0].line, 1);
    EXPECT_EQ(imported.left_out[0].why,
              "vendor 0020, which is higher, is allowed whole, and would open all of 0010 "
              "(surprise 4): list products instead");
    EXPECT_EQ(imported.rules, 2u);
    const Policy policy = PolicyOf(imported);
    const PolicyRules rules(policy);
    EXPECT_FALSE(judge({0, {8}, 0x10, 2}, rules).allowed);
    EXPECT_TRUE(judge({0, {8}, 0x20, 2}, rules).allowed);
    EXPECT_TRUE(judge({0, {8}, 0x30, 1}, rules).allowed);
    EXPECT_FALSE(judge({0, {8}, 0x30, 2}, rules).allowed);
}

TEST(Import, LooselyTakesTheIdAlone) {
    const std::string rule =
            "allow id 1d6b:0002 serial \"0000:00:14.0\" name \"xHCI \\\"Host\\\" --> Controller\" "
            "hash "
            "\"jEP/6WzviqdJ5VSeTUY8PatCNBKeaREvo2OqdplND/o=\" with-interface 09:00:00 "
            "with-connect-type \"\"";
    const ImportedPolicy imported = importRules(rule, /*loose=*/true);
    EXPECT_THAT(imported.left_out, IsEmpty());
    EXPECT_THAT(imported.warnings,
                ElementsAre("line 1: imported by its id alone, without: serial, name, hash, "
                            "with-connect-type, with-interface"));
    const Policy policy = PolicyOf(imported);
    EXPECT_EQ(policy.vendors.size(), 1u);
    EXPECT_TRUE(judge({0, {9}, 0x1d6b, 2}, PolicyRules(policy)).allowed);
}

TEST(Import, LineThatIsNoRuleIsLeftOut) {
    const std::pair<const char*, const char*> wrong[] = {
            {"permit 1234:5678", "a rule begins with allow, block or reject"},
            {"\"allow\"", "a rule begins with allow, block or reject"},
            {"allow 1234:56789", "unknown attribute: 1234:56789"},
            {"allow id 1234", "not an id: 1234"},
            {"allow id *:5678", "not an id: *:5678"},
            {"allow id", "id has no value"},
            {"allow id { }", "id has no value"},
            {"allow id { 1234:5678", "a brace is not closed"},
            {"allow id one-of 1234:5678", "id one-of takes values in braces"},
            {"allow name \"x", "a quoted text does not end"},
            {"allow \"x\"", "a value without an attribute"},
            {"allow with-interface 8:*:*", "not an interface type: 8:*:*"},
            {"allow with-interface *:*:*", "not an interface type: *:*:*"},
            {"allow colour red", "unknown attribute: colour"},
    };
    for (const auto& [text, why] : wrong) EXPECT_EQ(WhyNot(text), why) << text;
}

TEST(RuleLanguage, ReadsInterfaces) {
    const ForeignRules read =
            readForeignRules("allow with-interface equals-ordered { 08:06:50 ff:*:* }\r\n");
    ASSERT_EQ(read.rules.size(), 1u);
    const ForeignRule& rule = read.rules[0];
    EXPECT_EQ(rule.interface_operator, "equals-ordered");
    ASSERT_EQ(rule.interfaces.size(), 2u);
    EXPECT_EQ(rule.interfaces[0].code, 8);
    EXPECT_EQ(rule.interfaces[0].protocol, 0x50);
    EXPECT_EQ(rule.interfaces[1].code, 255);
    EXPECT_FALSE(rule.interfaces[1].subclass);
}

}  // namespace
}  // namespace android::vus::workbench
