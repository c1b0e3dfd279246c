// SPDX-License-Identifier: Apache-2.0
//
// docs/workbench.md against the program: each command in it is run, in its order and over the files
// that it shows, and prints what stands there.

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/unit/tools/client_fixture.h"

namespace android::vus::ctl {
namespace {

// Read before main, because the test program then leaves the tree for its private root.
std::vector<std::string> LinesOf(const std::string& path) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
}
const std::vector<std::string> kWorkbenchPage = LinesOf(VUS_SOURCE_DIR "/docs/workbench.md");

// What stands between two fences, and behind the first one.
struct DocBlock {
    size_t line;
    std::string info;
    std::vector<std::string> lines;
};

std::vector<DocBlock> DocBlocks() {
    std::vector<DocBlock> blocks;
    bool inside = false;
    for (size_t at = 0; at < kWorkbenchPage.size(); ++at) {
        const std::string& line = kWorkbenchPage[at];
        const bool fence = line.rfind("```", 0) == 0;
        if (fence && !inside) blocks.push_back({at + 1, line.substr(3), {}});
        if (fence) {
            inside = !inside;
        } else if (inside) {
            blocks.back().lines.push_back(line);
        }
    }
    return blocks;
}

std::string JoinedLines(const std::vector<std::string>& lines, size_t from) {
    std::string text;
    for (size_t at = from; at < lines.size(); ++at) text += lines[at] + "\n";
    return text;
}

class WorkbenchDocTest : public ClientTest {
  protected:
    void SetUp() override {
        ClientTest::SetUp();
        NoDaemon();
        MakeDir("/data/desk");
        ASSERT_EQ(chdir("/data/desk"), 0);
    }
    void TearDown() override { ASSERT_EQ(chdir("/"), 0); }

    // "vusctl A B > FILE", and what it prints: the output, unless it goes to the file, and errors.
    std::string Printed(const std::string& call) {
        Words words;
        std::istringstream stream(call);
        for (std::string word; stream >> word;) words.push_back(word);
        std::string file;
        if (words.size() > 2 && words[words.size() - 2] == ">") {
            file = words.back();
            words.resize(words.size() - 2);
        }
        words.erase(words.begin());
        Run(words);
        if (file.empty()) return Out() + Err();
        WriteFile("/data/desk/" + file, Out());
        return Err();
    }
};

TEST_F(WorkbenchDocTest, EveryCommandPrintsWhatItSays) {
    size_t commands_run = 0;
    for (const DocBlock& block : DocBlocks()) {
        SCOPED_TRACE("docs/workbench.md:" + std::to_string(block.line));
        const size_t file = block.info.find(" file=");
        if (file != std::string::npos) {
            WriteFile("/data/desk/" + block.info.substr(file + 6), JoinedLines(block.lines, 0));
        } else if (block.info == "console") {
            ASSERT_FALSE(block.lines.empty());
            ASSERT_EQ(block.lines[0].rfind("$ vusctl ", 0), 0u);
            EXPECT_EQ(Printed(block.lines[0].substr(2)), JoinedLines(block.lines, 1));
            ++commands_run;
        }
    }
    EXPECT_GE(commands_run, 5u);
}

}  // namespace
}  // namespace android::vus::ctl
