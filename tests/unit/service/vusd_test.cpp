// SPDX-License-Identifier: Apache-2.0
//
// The daemon's executable itself. There is no binder in the private root, so a service that is
// started gets as far as publishing, aborts, rolls back and ends with 6.

#include <unistd.h>

#include <filesystem>

#include "service_fixture.h"
#include "tests/support/child_process.h"

namespace android::vus {
namespace {

constexpr char kPolicy[] = "<usbconfig mode='whitelist'/>\n";

class VusdTest : public ServiceTest {
  protected:
    // Runs vusd, which is beside this program, and collects what it logs (on standard error).
    static ChildResult Run(std::vector<std::string> arguments) {
        return RunInChild([&] {
            static const std::string program =
                    std::filesystem::read_symlink("/proc/self/exe").parent_path() / "vusd";
            dup2(LogDescriptor(), STDERR_FILENO);
            std::vector<char*> argv = {const_cast<char*>(program.c_str())};
            for (std::string& argument : arguments) argv.push_back(argument.data());
            argv.push_back(nullptr);
            execv(program.c_str(), argv.data());
            ADD_FAILURE() << "cannot run " << program << ": " << strerror(errno);
        });
    }

    static void ExpectStartedTheService(const ChildResult& vusd) {
        EXPECT_EQ(vusd.exit_status, 6);
        EXPECT_THAT(vusd.log, Contains(HasSubstr("Register called in vu_service")));
        EXPECT_THAT(vusd.log, Not(Contains(HasSubstr("vus main called with run-startup-tasks"))));
    }
};

TEST_F(VusdTest, RunsTheStartupTaskAndExitsWithZero) {
    const ChildResult vusd = Run({"run-startup-tasks"});
    EXPECT_EQ(vusd.exit_status, 0);
    EXPECT_EQ(ReadFile(kPolicyFile).size(), 78u);
    ASSERT_EQ(vusd.log.size(), 3u);
    EXPECT_THAT(vusd.log[0], HasSubstr("] vus main called with argc: 2and argv: 0x"));
    EXPECT_THAT(vusd.log[1], HasSubstr("] vus main called with run-startup-tasks"));
    EXPECT_THAT(vusd.log[2], HasSubstr("] Directory exist, creating file"));
}

TEST_F(VusdTest, FurtherArgumentsAreIgnored) {
    EXPECT_EQ(Run({"run-startup-tasks", "--help"}).exit_status, 0);
    EXPECT_EQ(ReadFile(kPolicyFile).size(), 78u);
}

TEST_F(VusdTest, TheStartupTaskWithoutADirectoryExitsWithZero) {
    RemoveTree(kConfigDir);
    const ChildResult vusd = Run({"run-startup-tasks"});
    EXPECT_EQ(vusd.exit_status, 0);
    ASSERT_FALSE(vusd.log.empty());
    EXPECT_THAT(vusd.log.back(), HasSubstr("] no Directory exist"));
    EXPECT_FALSE(std::filesystem::exists(kConfigDir));
}

TEST_F(VusdTest, TheStartupTaskWithAFileInTheDirectorysPlaceExitsWithZero) {
    RemoveTree(kConfigDir);
    WriteFile(kConfigDir, "in the way");
    const ChildResult vusd = Run({"run-startup-tasks"});
    EXPECT_EQ(vusd.exit_status, 0);
    EXPECT_THAT(vusd.log.back(), HasSubstr("] no Directory exist"));
    EXPECT_EQ(ReadFile(kConfigDir), "in the way");
}

TEST_F(VusdTest, AnyOtherArgumentStartsTheService) {
    for (const char* argument : {"", "run-startup-taskss", "RUN-STARTUP-TASKS", "--help"}) {
        ExpectStartedTheService(Run({argument}));
        EXPECT_FALSE(std::filesystem::exists(kPolicyFile) && ReadFile(kPolicyFile).size() == 78u)
                << argument;
    }
}

TEST_F(VusdTest, AServiceWithoutBinderRollsBackAndEndsWithSix) {
    WriteFile(kPolicyFile, kPolicy);
    WriteFile(kStatusFile, "");
    const ChildResult vusd = Run({});
    ExpectStartedTheService(vusd);
    EXPECT_THAT(vusd.log[0], HasSubstr("] vus main called with argc: 1and argv: 0x"));
    EXPECT_THAT(vusd.log, Contains(HasSubstr("Segmentation faultsignum6")));
    EXPECT_THAT(vusd.log, Contains(HasSubstr("Stack Trace")));
    EXPECT_THAT(vusd.log, Contains(HasSubstr("#00 pc ")));
    // The policy was good, so it had become the backup.
    EXPECT_EQ(ReadFile(kPolicyFile), kPolicy);
    EXPECT_EQ(ReadFile(kPolicyBackupFile), kPolicy);
    EXPECT_EQ(ReadFile(kStatusFile), "Unable to apply the USB Admin config rules");
}

TEST_F(VusdTest, ABadPolicyIsRolledBackToTheLastGoodOne) {
    WriteFile(kPolicyFile, "<usbconfig");
    WriteFile(kPolicyBackupFile, kPolicy);
    ExpectStartedTheService(Run({}));
    EXPECT_EQ(ReadFile(kPolicyFile), kPolicy);
}

}  // namespace
}  // namespace android::vus
