// SPDX-License-Identifier: Apache-2.0
//
// docs/policy-guide.md against the loader: every policy in it is put in force or refused as the
// guide says, and its table of class names is the program's.

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "android/vus/paths.h"
#include "android/vus/util.h"
#include "tests/support/world.h"

namespace android::vus {
namespace {

std::vector<std::string> ReadLines(const std::string& path) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
}

// Read before main, because the test program then leaves the tree for its private root.
const std::vector<std::string> kGuide = ReadLines(VUS_SOURCE_DIR "/docs/policy-guide.md");

bool StartsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

// A policy of the guide. The text behind "```xml" says what becomes of it: nothing, or "refused: "
// and the status text.
struct Example {
    size_t line;
    std::string refusal;  // empty for a policy that loads
    std::string policy;
};

std::vector<Example> Examples() {
    const std::string fence = "```xml";
    const std::string refused = " refused: ";
    std::vector<Example> examples;
    bool inside = false;
    for (size_t i = 0; i < kGuide.size(); ++i) {
        const std::string& line = kGuide[i];
        if (!inside && StartsWith(line, fence)) {
            inside = true;
            examples.push_back({i + 1, "", ""});
            const std::string rest = line.substr(fence.size());
            if (StartsWith(rest, refused)) examples.back().refusal = rest.substr(refused.size());
        } else if (inside && line == "```") {
            inside = false;
        } else if (inside) {
            examples.back().policy += line + "\n";
        }
    }
    return examples;
}

std::vector<std::string> Cells(const std::string& row) {
    std::vector<std::string> cells;
    std::istringstream stream(row.substr(1));
    for (std::string cell; std::getline(stream, cell, '|');) {
        const size_t first = cell.find_first_not_of(' ');
        if (first == std::string::npos) continue;
        cells.push_back(cell.substr(first, cell.find_last_not_of(' ') - first + 1));
    }
    return cells;
}

struct ClassRow {
    int32_t code;
    int32_t hex;
    std::string name;
    bool restricted;
};

std::vector<ClassRow> ClassTable() {
    auto line = std::find(kGuide.begin(), kGuide.end(), "## Class names");
    std::vector<ClassRow> rows;
    for (; line != kGuide.end() && !StartsWith(*line, "## How"); ++line) {
        if (!StartsWith(*line, "| ") || !isdigit((*line)[2])) continue;
        const std::vector<std::string> cells = Cells(*line);
        rows.push_back({std::stoi(cells[0]), std::stoi(cells[1], nullptr, 16), cells[2],
                        cells[3] == "restricted"});
    }
    return rows;
}

class PolicyGuideTest : public ::testing::Test {
  protected:
    void SetUp() override { EmptyWorld(); }

    void Load(const std::string& policy) {
        WriteFile(kPolicyFile, policy);
        Util::createMapFromConfig(kPolicyFile);
    }

    LogCapture logs_;  // keeps the loader's lines out of the report
};

TEST_F(PolicyGuideTest, EveryPolicyIsLoadedOrRefusedAsItSays) {
    const std::vector<Example> examples = Examples();
    size_t refusals = 0;
    for (const Example& example : examples) {
        SCOPED_TRACE("docs/policy-guide.md:" + std::to_string(example.line));
        Load(example.policy);
        EXPECT_EQ(Util::xml_parse_status, example.refusal.empty()) << ReadFile(kStatusFile);
        if (example.refusal.empty()) continue;
        ++refusals;
        EXPECT_EQ(ReadFile(kStatusFile), example.refusal);
    }
    EXPECT_GE(examples.size() - refusals, 15u);
    EXPECT_GE(refusals, 9u);
}

TEST_F(PolicyGuideTest, TheTableOfClassNamesIsThePrograms) {
    const std::vector<ClassRow> rows = ClassTable();
    EXPECT_EQ(rows.size(), 29u);
    for (const ClassRow& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.code, row.hex);
        EXPECT_EQ(Util::convert(row.name), static_cast<uint32_t>(row.code));
        EXPECT_EQ(Util::getClassName(row.code), row.name);
        EXPECT_EQ(Util::validateRestrictedClass(row.code), row.restricted);
    }
}

// What the guide tells of vendors 100 to 300 under "The whole-vendor search walks on".
TEST_F(PolicyGuideTest, TheWholeVendorSearchWalksOnAsItTells) {
    const std::vector<Example> examples = Examples();
    const auto walk = std::find_if(examples.begin(), examples.end(), [](const Example& example) {
        return example.policy.find("vendorid=\"100\"") != std::string::npos;
    });
    ASSERT_NE(walk, examples.end());
    Load(walk->policy);
    EXPECT_TRUE(Util::validateVid(100));
    EXPECT_FALSE(Util::validateVid(150));
    EXPECT_TRUE(Util::validateVid(200));
    EXPECT_FALSE(Util::validateVid(300));
}

// A mixed recipe is safe only if no vendor with products is below a whole vendor.
TEST_F(PolicyGuideTest, NoRecipeOpensMoreThanItNames) {
    const auto recipes = std::find(kGuide.begin(), kGuide.end(), "## Recipes") - kGuide.begin();
    ASSERT_LT(static_cast<size_t>(recipes), kGuide.size());
    size_t checked = 0;
    for (const Example& example : Examples()) {
        if (example.line < static_cast<size_t>(recipes)) continue;
        SCOPED_TRACE("docs/policy-guide.md:" + std::to_string(example.line));
        Load(example.policy);
        ++checked;
        for (const auto& [vendor, product] : Util::vidPidMap) {
            const bool whole = Util::vidPidMap.count(vendor) == 1 && product == Util::kWholeVendor;
            EXPECT_EQ(Util::validateVid(vendor), whole) << vendor;
        }
    }
    EXPECT_GE(checked, 8u);
}

}  // namespace
}  // namespace android::vus
