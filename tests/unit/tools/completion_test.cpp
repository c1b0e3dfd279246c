// SPDX-License-Identifier: Apache-2.0
//
// Completion and the manual's synopsis: every command and option of the table is in them, and a
// real shell completes by them.

#include "tools/vusctl/completion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include "tests/support/world.h"
#include "tests/unit/tools/client_fixture.h"

namespace android::vus::ctl {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

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
    EXPECT_THAT(page, StartsWith(".SH SYNOPSIS\n.nf\nvusctl list [\\-\\-json]\n"));
    for (const Command& command : commands()) {
        EXPECT_THAT(page, HasSubstr("\n.B " + command.path() + "\n"));
    }
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
