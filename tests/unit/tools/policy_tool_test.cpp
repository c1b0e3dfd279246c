// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/policy_tool.h"

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sstream>

#include "android/vus/paths.h"
#include "android/vus/util.h"
#include "tests/support/world.h"
#include "tests/unit/tools/fake_watcher.h"
#include "tools/vusctl/client.h"
#include "tools/workbench/check.h"

namespace android::vus::ctl {
namespace {

using std::chrono::milliseconds;
using testing::IsEmpty;

constexpr char kGood[] = "<usbconfig mode=\"whitelist\"><class>USB_CLASS_AUDIO</class></usbconfig>";
constexpr char kBad[] = "<usbconfig mode=\"whitelist\"><class>USB_CLASS_HID</class></usbconfig>";

class PolicyToolTest : public testing::Test {
  protected:
    void SetUp() override {
        EmptyWorld();
        MakeDir(kConfigDir);
        WriteFile("/data/good.xml", kGood);
        WriteFile("/data/bad.xml", kBad);
    }

    // Keeps the first line: what the daemon would say.
    int Check(const std::string& path) {
        workbench::CheckOptions options;
        options.path = path;
        std::ostringstream out;
        const int status = workbench::runCheck(options, nullptr, out, err_);
        out_ << out.str().substr(0, out.str().find('\n') + 1);
        return status;
    }
    int Set(const std::string& path, milliseconds limit = kAnswerLimit) {
        return set_policy(path, out_, err_, limit);
    }
    // With `content` on the standard input.
    template <typename Call>
    int WithInput(const std::string& content, Call call) {
        WriteFile("/data/input", content);
        const base::unique_fd before(dup(STDIN_FILENO));
        const base::unique_fd input(open("/data/input", O_RDONLY | O_CLOEXEC));
        EXPECT_EQ(dup2(input.get(), STDIN_FILENO), STDIN_FILENO);
        const int status = call();
        dup2(before.get(), STDIN_FILENO);
        return status;
    }

    std::ostringstream out_, err_;
};

TEST_F(PolicyToolTest, CheckAnswersAsTheDaemonWould) {
    EXPECT_EQ(Check("/data/good.xml"), kDone);
    EXPECT_EQ(Check("/data/bad.xml"), kRefused);
    WriteFile("/data/broken.xml", "<usbconfig");
    EXPECT_EQ(Check("/data/broken.xml"), kRefused);
    WriteFile("/data/empty.xml", "");
    EXPECT_EQ(Check("/data/empty.xml"), kRefused);
    WriteFile("/data/escape.xml", "<usb\xC2\x9B/>");
    EXPECT_EQ(Check("/data/escape.xml"), kRefused);
    EXPECT_EQ(out_.str(),
              "SUCCESS\n"
              "INVALID CLASS VALUE:USB_CLASS_HID\n"
              "Error=XML_ERROR_PARSING_ELEMENT ErrorID=6 (0x6) Line number=1: "
              "XMLElement name=usbconfig\n"
              "Error=XML_ERROR_EMPTY_DOCUMENT ErrorID=13 (0xd) Line number=0\n"
              "INVALID ROOT ELEMENT : usb?\n");
    EXPECT_EQ(err_.str(), "");
}

TEST_F(PolicyToolTest, PolicyWithoutRulesIsGood) {
    Check("/data/bad.xml");
    WriteFile("/data/none.xml", "<usbconfig mode=\"whitelist\"/>");
    EXPECT_EQ(Check("/data/none.xml"), kDone);
    EXPECT_EQ(out_.str(), "INVALID CLASS VALUE:USB_CLASS_HID\nSUCCESS\n");
}

TEST_F(PolicyToolTest, CheckLeavesTheDaemonsFilesAndTheLogAlone) {
    WriteFile(kStatusFile, "before");
    WriteFile(kPolicyFile, "policy");
    const LogCapture log;
    Check("/data/bad.xml");
    EXPECT_EQ(ReadFile(kStatusFile), "before");
    EXPECT_EQ(ReadFile(kPolicyFile), "policy");
    EXPECT_STREQ(Util::statusFilePath, kStatusFile);
    EXPECT_THAT(const_cast<LogCapture&>(log).Messages(), IsEmpty());
}

TEST_F(PolicyToolTest, DashIsTheStandardInput) {
    EXPECT_EQ(WithInput(kBad, [this] { return Check("-"); }), kRefused);
    EXPECT_EQ(WithInput(kGood, [this] { return Check("-"); }), kDone);
    const FakeWatcher watcher({"SUCCESS"});
    EXPECT_EQ(WithInput(kGood, [this] { return Set("-"); }), kDone);
    EXPECT_EQ(ReadFile(kPolicyFile), kGood);
}

TEST_F(PolicyToolTest, FileThatCannotBeReadIsSaid) {
    EXPECT_EQ(Check("/data/none.xml"), kFailed);
    EXPECT_EQ(Set("/data"), kFailed);
    EXPECT_EQ(err_.str(),
              "vusctl: cannot read /data/none.xml: No such file or directory\n"
              "vusctl: cannot read /data: Is a directory\n");
    EXPECT_EQ(ReadFile(kPolicyFile), "");
}

TEST_F(PolicyToolTest, BadPolicyIsNeverWritten) {
    WriteFile(kPolicyFile, "before");
    EXPECT_EQ(Set("/data/bad.xml"), kRefused);
    EXPECT_EQ(err_.str(),
              "vusctl: not set, the policy would be rejected: "
              "INVALID CLASS VALUE:USB_CLASS_HID\n");
    EXPECT_EQ(ReadFile(kPolicyFile), "before");
}

TEST_F(PolicyToolTest, GoodPolicyIsWrittenInPlaceAndAnswered) {
    WriteFile(kPolicyFile, std::string(10000, 'x'));
    struct stat before, after;
    ASSERT_EQ(stat(kPolicyFile, &before), 0);
    const FakeWatcher watcher({"SUCCESS"});
    EXPECT_EQ(Set("/data/good.xml"), kDone);
    EXPECT_EQ(out_.str(), "SUCCESS\n");
    EXPECT_EQ(ReadFile(kPolicyFile), kGood);
    ASSERT_EQ(stat(kPolicyFile, &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(PolicyToolTest, StaleTextBeforeSuccessIsNoAnswer) {
    const FakeWatcher watcher({"MODE NOT PRESENT", "SUCCESS"});
    EXPECT_EQ(Set("/data/good.xml"), kDone);
    EXPECT_EQ(out_.str(), "SUCCESS\n");
}

TEST_F(PolicyToolTest, RejectionByTheDaemonIsSaid) {
    const FakeWatcher watcher({"INVALID MODE"});
    EXPECT_EQ(Set("/data/good.xml"), kRefused);
    EXPECT_EQ(out_.str(), "INVALID MODE\n");
}

TEST_F(PolicyToolTest, AnswerThatWasThereBeforeIsNone) {
    WriteFile(kStatusFile, "SUCCESS");
    EXPECT_EQ(Set("/data/good.xml", milliseconds(50)), kFailed);
    EXPECT_EQ(err_.str(), "vusctl: written, but the daemon has not answered\n");
    EXPECT_EQ(out_.str(), "");
}

TEST_F(PolicyToolTest, PolicyThatCannotBeWrittenIsSaid) {
    RemoveTree(kConfigDir);
    EXPECT_EQ(Set("/data/good.xml"), kFailed);
    EXPECT_EQ(err_.str(),
              "vusctl: cannot write /data/system/usbdeviceconfig/usb_device_config.xml: "
              "No such file or directory\n");
}

}  // namespace
}  // namespace android::vus::ctl
