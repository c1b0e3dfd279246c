// SPDX-License-Identifier: Apache-2.0
//
// Completion and the manual's synopsis: every command and option of the table is in them, and a
// real shell completes by them.

#include "tools/vusctl/completion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <sstream>

#include "tests/support/world.h"
#include "tests/unit/tools/client_fixture.h"
#include "tools/vusctl/manual.h"

namespace android::vus::ctl {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

// Read before main, because the test program then leaves the tree for its private root.
std::string ReadManualPage() {
    std::ostringstream text;
    text << std::ifstream(VUS_SOURCE_DIR "/docs/man/vusctl.1").rdbuf();
    return text.str();
}
const std::string kManualPage = ReadManualPage();

// What bash offers for the last of the words.
std::string Completed(const std::string& words, int last) {
    WriteFile("/data/vusctl.bash", *completion_for("bash"));
    WriteFile("/data/ask.sh", ". /data/vusctl.bash; COMP_WORDS=(" + words +
                                      "); COMP_CWORD=" + std::to_string(last) +
                                      "; _vusctl; echo \"${COMPREPLY[*]}\" > /data/answer");
    EXPECT_EQ(system("bash /data/ask.sh"), 0);
    return ReadFile("/data/answer");
}

TEST(Completion, BashOffersCommandsSubcommandsAndOptions) {
    EXPECT_EQ(Completed("vusctl wa", 1), "watch\n");
    EXPECT_EQ(Completed("vusctl policy ex", 2), "explain\n");
    EXPECT_EQ(Completed("vusctl policy explain --li", 3), "--list --live\n");
    EXPECT_EQ(Completed("vusctl list --j", 2), "--json\n");
    EXPECT_EQ(Completed("vusctl reset --", 2), "--help\n");
    EXPECT_EQ(Completed("vusctl policy set /data/vusctl.b", 3), "/data/vusctl.bash\n");
    EXPECT_EQ(Completed("vusctl policy learn --list /data/vusctl.b", 4), "/data/vusctl.bash\n");
    EXPECT_EQ(Completed("vusctl policy keep /data/vusctl.b", 3), "\n");
}

TEST(Completion, EveryScriptKnowsTheWholeTable) {
    for (const char* shell : {"bash", "zsh", "fish"}) {
        const std::string script = *completion_for(shell);
        for (const Command& command : commands()) {
            EXPECT_THAT(script, HasSubstr(command.name)) << shell;
            EXPECT_THAT(script, HasSubstr(command.sub)) << shell;
            for (const Option& option : command.options) {
                EXPECT_THAT(script, HasSubstr(option.name + 2)) << shell;
            }
        }
    }
    EXPECT_EQ(completion_for("sh"), std::nullopt);
}

TEST(Completion, ManualsSynopsisKnowsTheWholeTable) {
    const std::string page = manual_synopsis();
    EXPECT_THAT(page, StartsWith(".Sh SYNOPSIS\n.Nm\n.Cm list\n.Op Fl -json\n.Nm\n.Cm why\n"
                                 ".Ar ID\n.Op Fl -usb\n"));
    EXPECT_THAT(page,
                HasSubstr("\n.Cm judge\n.Fl -id Ar N\n.Op Fl -usb\n.Op Fl -input\n.Op Fl -name"));
    EXPECT_THAT(page, HasSubstr("\n.Nm\n.Fl -version\n.Sh DESCRIPTION\n"));
    EXPECT_THAT(page, HasSubstr("\n.It Fl -version\n"));
    EXPECT_THAT(page, HasSubstr("\n.Op Ar DIR\n"));
    EXPECT_THAT(page, HasSubstr("\n.Op Cm test\n"));
    for (const Command& command : commands()) {
        EXPECT_THAT(page, HasSubstr("\n.It Cm " + command.path()));
        for (const Option& option : command.options) {
            EXPECT_THAT(page, HasSubstr(std::string("\n.It Fl ") + (option.name + 1)));
        }
    }
}

// mandoc's lint complains of neither.
TEST(Completion, ManualsSentencesBeginLinesAndNoLineIsLong) {
    std::istringstream lines(manual_synopsis());
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 80u) << line;
        EXPECT_THAT(line, testing::Not(testing::ContainsRegex("[a-z]\\. [A-Z]")));
        EXPECT_NE(line, "");
    }
}

TEST(Completion, ManualPageIsMadeOfTheTable) {
    EXPECT_THAT(kManualPage, HasSubstr(manual_synopsis()))
            << "docs/man/vusctl.1 is older than the table: scripts/update_manual.py";
}

class CompletionCommandTest : public ClientTest {};

TEST_F(CompletionCommandTest, PrintsWhatIsAskedFor) {
    NoDaemon();
    EXPECT_EQ(Run({"completion", "fish"}), kDone);
    EXPECT_EQ(Out(), *completion_for("fish"));
    EXPECT_EQ(Run({"completion", "man"}), kDone);
    EXPECT_EQ(Out(), manual_synopsis());
    EXPECT_EQ(Run({"completion", "sh"}), kUsage);
    EXPECT_EQ(Err(),
              "vusctl: completion takes bash, zsh, fish or man (vusctl --help tells more)\n");
}

}  // namespace
}  // namespace android::vus::ctl
