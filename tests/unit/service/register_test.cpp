// SPDX-License-Identifier: Apache-2.0
//
// The start of the service: policy, publication, watcher. Each test is a process of its own,
// because a registered service watches for as long as its process lives.

#include <sys/stat.h>
#include <unistd.h>

#include "service_fixture.h"
#include "tests/support/child_process.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;

constexpr char kGoodPolicy[] =
        "<usbconfig mode='whitelist'><class>USB_CLASS_AUDIO</class></usbconfig>";

class RegisterTest : public ServiceTest {
  protected:
    // Registers and waits until the watcher is at work, or has said why not.
    void Register() {
        VUsbService::Register();
        ASSERT_TRUE(WaitFor([&] {
            return Logged("registered successfully file observer") ||
                   Logged(HasSubstr("Could not register INotify"));
        }));
    }
    // What Register says itself, without the loader and the copy.
    std::vector<std::string> OwnMessages() {
        return OnlyFrom({" parsing", " updating", "copying backup", "Register called",
                         "vus service", "registerFileObserver", "registered successfully"});
    }
};

TEST_F(RegisterTest, AGoodPolicyIsConfirmedAndBackedUp) {
    ExpectPassesInChild([&] {
        WriteFile(kPolicyFile, kGoodPolicy);
        WriteFile(kStatusFile, "INVALID MODE");
        Register();
        EXPECT_EQ(ReadFile(kStatusFile), "SUCCESS");
        EXPECT_EQ(ReadFile(kPolicyBackupFile), std::string(kGoodPolicy) + "\n");
        EXPECT_EQ(Util::getMode(), "whitelist");
    });
}

TEST_F(RegisterTest, LogsInOrder) {
    ExpectPassesInChild([&] {
        WriteFile(kPolicyFile, kGoodPolicy);
        Register();
        const std::vector<std::string> own = OwnMessages();
        ASSERT_EQ(own.size(), 7u);
        EXPECT_THAT(std::vector<std::string>(own.begin(), own.begin() + 5),
                    ElementsAre(" parsing register createmap called",
                                " updating error fle with success", "copying backup ",
                                "Register called in vu_service",
                                "vus service Registered successfully"));
        // The new thread may be quicker than the one that started it.
        EXPECT_THAT(own, Contains("registerFileObserverViaThread result--0"));
        EXPECT_THAT(own, Contains("registered successfully file observer"));
        EXPECT_TRUE(logs_.Errors().empty());
    });
}

TEST_F(RegisterTest, ABadPolicyIsLeftWithTheLoadersText) {
    ExpectPassesInChild([&] {
        WriteFile(kPolicyFile, "<usbconfig mode='open'/>");
        WriteFile(kPolicyBackupFile, "the last good one\n");
        Register();
        EXPECT_EQ(ReadFile(kStatusFile), "INVALID MODE");
        EXPECT_EQ(ReadFile(kPolicyBackupFile), "the last good one\n");
        EXPECT_EQ(ReadFile(kPolicyFile), "<usbconfig mode='open'/>");
        EXPECT_THAT(logs_.Lines(), Contains("I  parsing failed"));
        EXPECT_FALSE(Logged("copying backup "));
        EXPECT_TRUE(Logged("vus service Registered successfully"));
    });
}

TEST_F(RegisterTest, APipeInAFilesPlaceDoesNotKeepTheServiceFromBeingPublished) {
    for (const char* path : {kPolicyFile, kPolicyBackupFile, kStatusFile}) {
        SetUp();
        SCOPED_TRACE(path);
        ExpectPassesInChild([&] {
            alarm(20);
            WriteFile(kPolicyFile, kGoodPolicy);
            remove(path);
            ASSERT_EQ(mkfifo(path, 0600), 0);
            Register();
            EXPECT_TRUE(Logged("vus service Registered successfully"));
        });
    }
}

TEST_F(RegisterTest, TheServiceIsPublishedUnderItsName) {
    ExpectPassesInChild([&] {
        WriteFile(kPolicyFile, kGoodPolicy);
        Register();
        const sp<IBinder> published =
                defaultServiceManager()->checkService(String16("vusbservice"));
        ASSERT_NE(published, nullptr);
        EXPECT_EQ(published->getInterfaceDescriptor(), IVUsbService::descriptor);
        EXPECT_EQ(published->getStrongCount(), 2) << "the manager's and ours: Register keeps none";
    });
}

TEST_F(RegisterTest, AServiceThatCannotBePublishedEndsTheProcess) {
    WriteFile(kPolicyFile, kGoodPolicy);
    const ChildResult child = RunInChild([&] {
        manager_->add_result = PERMISSION_DENIED;
        VUsbService::Register();
    });
    EXPECT_EQ(child.signal, SIGABRT);
    EXPECT_EQ(child.log.back(), "F Could not register VUS-1");
    EXPECT_THAT(child.log, Not(Contains(HasSubstr("registerFileObserverViaThread"))));
}

struct BuildType {
    const char* value;  // null: the property is not set
    bool debug;
};

class BuildTypeTest : public RegisterTest, public ::testing::WithParamInterface<BuildType> {};

TEST_P(BuildTypeTest, DecidesAboutTheDebugFlag) {
    ExpectPassesInChild([&] {
        if (GetParam().value != nullptr) SetProperty(kBuildTypeProperty, GetParam().value);
        Register();
        EXPECT_EQ(VUsbService::debugBuild, GetParam().debug);
    });
}

INSTANTIATE_TEST_SUITE_P(All, BuildTypeTest,
                         ::testing::Values(BuildType{nullptr, true}, BuildType{"userdebug", true},
                                           BuildType{"user", false}, BuildType{"eng", false},
                                           BuildType{"userdebug2", false},
                                           BuildType{"Userdebug", false}));

}  // namespace
}  // namespace android::vus
