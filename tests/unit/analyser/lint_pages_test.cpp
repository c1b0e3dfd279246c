// SPDX-License-Identifier: Apache-2.0
//
// docs/lint/ against the linter: a page a finding, whose first policy has it and whose second one
// has not.

#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "small_world.h"
#include "tools/workbench/lint.h"

namespace android::vus::workbench {
namespace {

std::map<std::string, std::string> readPages() {
    std::map<std::string, std::string> pages;
    for (const auto& entry : std::filesystem::directory_iterator(VUS_SOURCE_DIR "/docs/lint")) {
        std::ostringstream text;
        text << std::ifstream(entry.path()).rdbuf();
        pages[entry.path().stem()] = text.str();
    }
    return pages;
}

// Read before main, because the test program then leaves the tree for its private root.
const std::map<std::string, std::string> kPages = readPages();

std::vector<std::string> policiesOf(const std::string& page) {
    const std::string fence = "```xml\n";
    std::vector<std::string> policies;
    for (size_t at = page.find(fence); at != std::string::npos; at = page.find(fence, at)) {
        at += fence.size();
        policies.push_back(page.substr(at, page.find("```", at) - at));
    }
    return policies;
}

class SomeNames final : public VendorNames {
  public:
    std::optional<std::string> nameOf(int32_t vendor) const override {
        if (vendor == 5986 || vendor == 61111) return std::nullopt;
        return "Example Devices";
    }
};

bool finds(const std::string& text, std::string_view id) {
    const SomeNames names{};
    for (const Finding& each : lint(text, policyOf(text), &names)) {
        if (each.rule->id == id) return true;
    }
    return false;
}

TEST(LintPagesTest, EachFindingHasAPageThatShowsIt) {
    for (const LintRule& rule : lintRules()) {
        SCOPED_TRACE(rule.id);
        const auto page = kPages.find(std::string(rule.id));
        ASSERT_NE(page, kPages.end());
        EXPECT_EQ(page->second.rfind("# " + std::string(rule.id) + "\n\n" + std::string(rule.title),
                                     0),
                  0U);
        const std::vector<std::string> policies = policiesOf(page->second);
        ASSERT_EQ(policies.size(), 2U);
        EXPECT_TRUE(finds(policies[0], rule.id));
        EXPECT_FALSE(finds(policies[1], rule.id));
    }
    EXPECT_EQ(kPages.size(), lintRules().size() + 1);
}

TEST(LintVendorsTest, HexadecimalReadingIsNamed) {
    const std::string text =
            "<usbconfig mode=\"whitelist\">\n<vid vendorid=\"5986\"/>\n"
            "<vid vendorid=\"61111\"/>\n<vid vendorid=\"1133\"/>\n</usbconfig>";
    const SomeNames names{};
    const std::vector<Finding> findings = lint(text, policyOf(text), &names);
    ASSERT_EQ(findings.size(), 2U);
    EXPECT_EQ(findings[0].line, 2);
    EXPECT_EQ(findings[0].message,
              "No vendor 5986 is known, but 0x5986 is Example Devices. Ids are decimal here.");
    EXPECT_EQ(findings[0].advice, "Write 22918 if that vendor is meant.");
    EXPECT_EQ(findings[1].line, 3);
    EXPECT_EQ(findings[1].message, "The system's database of USB ids knows no vendor 61111.");
    EXPECT_TRUE(lint(text, policyOf(text), nullptr).empty());
}

TEST(LintPagesTest, TheIndexIsTheCatalogue) {
    std::string rows;
    for (const LintRule& rule : lintRules()) {
        const std::string id(rule.id);
        rows += "| [" + id + "](" + id + ".md) | " + std::string(nameOf(rule.level)) + " | " +
                std::string(rule.title) + " |\n";
    }
    EXPECT_NE(kPages.at("README").find("|---|---|---|\n" + rows), std::string::npos);
}

TEST(LintPagesTest, EveryRuleIsFoundByItsId) {
    for (const LintRule& rule : lintRules()) EXPECT_EQ(findLintRule(rule.id), &rule);
    EXPECT_EQ(findLintRule("no-such"), nullptr);
    EXPECT_EQ(findLintRule(""), nullptr);
    EXPECT_EQ(findLintRule("zzz"), nullptr);
}

}  // namespace
}  // namespace android::vus::workbench
