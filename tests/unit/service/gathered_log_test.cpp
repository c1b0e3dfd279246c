// SPDX-License-Identifier: Apache-2.0
//
// What is in the log file when: a decision's lines are written together, but all that were logged
// are there before the daemon waits for somebody else, and before it ends.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <future>
#include <string>
#include <thread>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/unique_fd.h>
#include <binder/Parcel.h>

#include "android/vus/daemon.h"
#include "android/vus/gathered_log.h"
#include "platform/unblocked_output.h"
#include "service_fixture.h"
#include "tests/support/child_process.h"

namespace android::vus {
namespace {

using base::unique_fd;

constexpr char kLog[] = "/data/log";
constexpr uint32_t kListCall = IBinder::FIRST_CALL_TRANSACTION + 2;
constexpr int32_t kDisk = 1002;
constexpr char kFirstLine[] = "create_usb_device_map called";
constexpr char kLastLine[] = "isDeviceAllowed called with mode: whitelist";

bool LogHas(const std::string& text) {
    return ReadFile(kLog).find(text) != std::string::npos;
}

class GatheredLogTest : public ServiceTest {
  protected:
    void SetUp() override {
        ServiceTest::SetUp();
        LoadPolicy("<usbconfig mode='whitelist'/>");
        AttachUsbDevice("1-2", 2, {8});
    }

    // Runs `body` in a process whose log is the file, as the service has it.
    static ChildResult RunWithLog(const std::function<void()>& body) {
        return RunInChild([&] {
            const unique_fd log(open(kLog, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
            dup2(log.get(), STDERR_FILENO);
            platform::unblockStandardStreams();
            base::SetLogger(base::StderrLogger);
            body();
        });
    }

    void RefuseDisk() {
        bool allowed = true;
        service_->isDeviceAllowed(UsbDeviceInfo(kDisk, {8}), &allowed);
        EXPECT_FALSE(allowed);
    }
};

TEST_F(GatheredLogTest, AllOfADecisionIsWrittenBeforeItsAnswer) {
    const ChildResult child = RunWithLog([&] {
        RefuseDisk();
        EXPECT_TRUE(LogHas(kFirstLine));
        EXPECT_TRUE(LogHas(kLastLine));
    });
    EXPECT_EQ(child.exit_status, 0);
}

TEST_F(GatheredLogTest, WhatWasLoggedIsThereBeforeAClientIsCalled) {
    const ChildResult child = RunWithLog([&] {
        const sp<RecordingCallback> client = RegisterClient();
        int calls = 0;
        client->on_added = [&](const DeviceInfo&) {
            ++calls;
            EXPECT_TRUE(LogHas("custom_struct size is 1\n"));
            EXPECT_FALSE(LogHas(kLastLine));
        };
        RefuseDisk();
        EXPECT_EQ(calls, 1);
        EXPECT_TRUE(LogHas(kLastLine));
    });
    EXPECT_EQ(child.exit_status, 0);
}

// The kernel keeps whoever writes there for as long as a driver takes to let go: a pipe that is
// full keeps him, too.
TEST_F(GatheredLogTest, WhatWasLoggedIsThereBeforeTheKernelIsWaitedFor) {
    const std::string attribute = UsbPath("1-2:1.0", "authorized");
    ASSERT_EQ(unlink(attribute.c_str()), 0);
    ASSERT_EQ(mkfifo(attribute.c_str(), 0600), 0);
    const unique_fd pipe(open(attribute.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    ASSERT_TRUE(pipe.ok());
    while (write(pipe.get(), "x", 1) == 1) continue;
    const ChildResult child = RunWithLog([&] {
        std::thread decision([&] { RefuseDisk(); });
        EXPECT_TRUE(WaitFor([&] { return LogHas("update_status path is :" + attribute); }));
        EXPECT_FALSE(LogHas(kLastLine));
        std::string full(1 << 20, '\0');
        EXPECT_GT(read(pipe.get(), full.data(), full.size()), 0);
        decision.join();
        EXPECT_TRUE(LogHas(kLastLine));
    });
    EXPECT_EQ(child.exit_status, 0);
}

TEST_F(GatheredLogTest, ACrashInTheMiddleOfADecisionLosesNothingOfIt) {
    for (const int signal : {SIGSEGV, SIGABRT}) {
        unlink(kLog);
        const ChildResult child = RunWithLog([&] {
            installCrashHandler();
            const GatheredLog log;
            LOG(INFO) << "the last that was said";
            raise(signal);
        });
        EXPECT_EQ(child.exit_status, signal);
        const std::string text = ReadFile(kLog);
        const size_t said = text.find("the last that was said\n");
        const size_t handled = text.find("Segmentation faultsignum" + std::to_string(signal));
        ASSERT_NE(said, std::string::npos) << text;
        ASSERT_NE(handled, std::string::npos) << text;
        EXPECT_LT(said, handled);
        EXPECT_TRUE(LogHas("#00")) << text;
    }
}

TEST_F(GatheredLogTest, ACrashLosesNothingOfTheDecisionsOfOtherThreads) {
    const ChildResult child = RunWithLog([&] {
        installCrashHandler();
        std::promise<void> said;
        std::thread decision([&] {
            const GatheredLog log;
            LOG(INFO) << "the last that another said";
            said.set_value();
            while (true) pause();
        });
        said.get_future().wait();
        raise(SIGSEGV);
    });
    EXPECT_EQ(child.exit_status, SIGSEGV);
    EXPECT_TRUE(LogHas("the last that another said\n"));
}

// A client that is told of a device may ask for another one before it answers.
TEST_F(GatheredLogTest, AllOfACallIsWrittenBeforeItsAnswerWhileAnOuterCallWaits) {
    const ChildResult child = RunWithLog([&] {
        const sp<RecordingCallback> client = RegisterClient();
        int calls = 0;
        client->on_added = [&](const DeviceInfo&) {
            ++calls;
            LOG(INFO) << "within the client";
            Parcel data;
            Parcel reply;
            data.writeInterfaceToken(IVUsbService::descriptor);
            EXPECT_EQ(service_->transact(kListCall, data, &reply), OK);
            EXPECT_TRUE(LogHas("within the client\n"));
        };
        RefuseDisk();
        EXPECT_EQ(calls, 1);
    });
    EXPECT_EQ(child.exit_status, 0);
}

TEST_F(GatheredLogTest, AFatalLineIsWrittenWithWhatWasGathered) {
    const ChildResult child = RunWithLog([&] {
        installCrashHandler();
        const GatheredLog log;
        LOG(INFO) << "the last that was said";
        LOG(FATAL) << "the end";
    });
    EXPECT_EQ(child.exit_status, SIGABRT);
    EXPECT_TRUE(LogHas("the last that was said\n"));
    EXPECT_TRUE(LogHas("the end\n"));
}

}  // namespace
}  // namespace android::vus
