// SPDX-License-Identifier: Apache-2.0
//
// The start-up task: a policy file exists afterwards, and nothing that was there is touched.

#include <sys/stat.h>

#include <string>
#include <vector>

#include "android/vus/daemon.h"
#include "service_fixture.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;

constexpr char kDefaultPolicy[] =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<usbconfig mode=\"default\">\n</usbconfig>";

using StartupTaskTest = ServiceTest;

bool Wants(std::vector<std::string> arguments) {
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    return wantsStartupTasks(static_cast<int>(arguments.size()), argv.data());
}

TEST_F(StartupTaskTest, OnlyTheWholeWordAsksForIt) {
    EXPECT_TRUE(Wants({"vusd", "run-startup-tasks"}));
    EXPECT_TRUE(Wants({"vusd", "run-startup-tasks", "more", "arguments"}));
    EXPECT_FALSE(Wants({}));
    EXPECT_FALSE(Wants({"vusd"}));
    EXPECT_FALSE(Wants({"run-startup-tasks"}));
    EXPECT_FALSE(Wants({"vusd", ""}));
    EXPECT_FALSE(Wants({"vusd", "run-startup-task"}));
    EXPECT_FALSE(Wants({"vusd", "run-startup-taskss"}));
    EXPECT_FALSE(Wants({"vusd", "RUN-STARTUP-TASKS"}));
    EXPECT_FALSE(Wants({"vusd", " run-startup-tasks"}));
    EXPECT_FALSE(Wants({"vusd", "x", "run-startup-tasks"}));
}

TEST_F(StartupTaskTest, WritesTheDefaultPolicy) {
    RunStartupTasks();
    EXPECT_EQ(ReadFile(kPolicyFile), kDefaultPolicy);
    EXPECT_EQ(ReadFile(kPolicyFile).size(), 78u);
    EXPECT_THAT(logs_.Lines(), ElementsAre("I vus main called with run-startup-tasks",
                                           "I Directory exist, creating file"));
}

TEST_F(StartupTaskTest, ItsPolicyLoads) {
    RunStartupTasks();
    Util::createMapFromConfig(kPolicyFile);
    EXPECT_TRUE(Util::xml_parse_status);
    EXPECT_EQ(Util::getMode(), "default");
}

TEST_F(StartupTaskTest, TheUmaskDecidesAboutPermissions) {
    const mode_t before = umask(027);
    RunStartupTasks();
    umask(before);
    struct stat file;
    ASSERT_EQ(stat(kPolicyFile, &file), 0);
    EXPECT_EQ(file.st_mode & 0777, 0640u);
}

TEST_F(StartupTaskTest, ASecondRunLeavesThePolicyAlone) {
    RunStartupTasks();
    WriteFile(kPolicyFile, "changed");
    RunStartupTasks();
    EXPECT_EQ(ReadFile(kPolicyFile), "changed");
}

TEST_F(StartupTaskTest, AnEmptyPolicyIsLeftAlone) {
    WriteFile(kPolicyFile, "");
    RunStartupTasks();
    EXPECT_EQ(ReadFile(kPolicyFile), "");
}

TEST_F(StartupTaskTest, AnEntryOfAnyTypeCountsAsAPolicy) {
    MakeDir(kPolicyFile);
    RunStartupTasks();
    EXPECT_THAT(Messages(), ElementsAre("vus main called with run-startup-tasks",
                                        "Directory exist, creating file"));
    struct stat entry;
    ASSERT_EQ(stat(kPolicyFile, &entry), 0);
    EXPECT_TRUE(S_ISDIR(entry.st_mode));
}

TEST_F(StartupTaskTest, WithoutTheDirectoryNothingIsCreated) {
    RemoveTree(kConfigDir);
    RunStartupTasks();
    EXPECT_THAT(Messages(),
                ElementsAre("vus main called with run-startup-tasks", "no Directory exist"));
    struct stat entry;
    EXPECT_NE(stat(kConfigDir, &entry), 0);
}

TEST_F(StartupTaskTest, AFileIsNoDirectory) {
    RemoveTree(kConfigDir);
    WriteFile(kConfigDir, "in the way");
    RunStartupTasks();
    EXPECT_EQ(logs_.Lines().back(), "I no Directory exist");
    EXPECT_EQ(ReadFile(kConfigDir), "in the way");
}

// A link that leads nowhere does not exist for stat; writing through it fails without a word.
TEST_F(StartupTaskTest, APolicyThatCannotBeCreatedIsNotReported) {
    ASSERT_EQ(symlink("/nowhere/at/all", kPolicyFile), 0);
    RunStartupTasks();
    EXPECT_THAT(Messages(), ElementsAre("vus main called with run-startup-tasks",
                                        "Directory exist, creating file"));
    EXPECT_TRUE(logs_.Errors().empty());
}

// Somebody plants a link where no policy is: the daemon's hand makes no file elsewhere.
TEST_F(StartupTaskTest, ALinkIsNotFollowed) {
    ASSERT_EQ(symlink("/data/elsewhere", kPolicyFile), 0);
    RunStartupTasks();
    struct stat entry;
    EXPECT_NE(stat("/data/elsewhere", &entry), 0);
}

}  // namespace
}  // namespace android::vus
