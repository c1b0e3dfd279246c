// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/reporter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "tests/unit/tools/fake_service.h"
#include "tests/unit/tools/fake_switches.h"

namespace android::vus::hotplug {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

DeviceInfo Disk(int32_t id) {
    DeviceInfo info;
    info.deviceId = id;
    info.vendorId = 0x951;
    info.productId = 0x1666;
    info.interfaceClassList = {8};
    return info;
}

class ReporterTest : public testing::Test {
  protected:
    void SetUp() override {
        fake_->note_lists = false;
        reporter_.set_service(fake_);
    }

    void Judge(const std::string& device, const std::optional<DeviceInfo>& info) {
        Sighting seen;
        seen.info = info;
        reporter_.judge({device}, [seen] { return seen; });
    }
    void Removed(const std::string& device) { reporter_.removed({device}); }
    std::vector<std::string> Calls() {
        reporter_.drain();
        return fake_->Take();
    }
    std::vector<std::string> Lines() {
        const std::lock_guard<std::mutex> lock(lines_mutex_);
        return std::exchange(lines_, {});
    }

    sp<FakeService> fake_ = new FakeService;
    std::mutex lines_mutex_;
    std::vector<std::string> lines_;
    FakeSwitches switches_;
    Reporter reporter_{&switches_,
                       {false,
                        [this](const std::string& line) {
                            const std::lock_guard<std::mutex> lock(lines_mutex_);
                            lines_.push_back(line);
                        },
                        nullptr}};
};

TEST_F(ReporterTest, RemovalIsReportedWithTheRecordThatWasJudged) {
    Judge("1-2", Disk(1005));
    Removed("1-2");
    EXPECT_THAT(Calls(), ElementsAre("judge 1005", "update 1005 0"));
    Removed("1-2");
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ReporterTest, DeviceThatWasNeverJudgedIsNotReportedRemoved) {
    Removed("1-2");
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ReporterTest, DeviceThatIsNotReportedIsNotJudged) {
    Judge("1-2", std::nullopt);
    Removed("1-2");
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(ReporterTest, SameDeviceIsJudgedAgainWithoutRemoval) {
    Judge("1-2", Disk(1005));
    Judge("1-2", Disk(1005));
    EXPECT_THAT(Calls(), ElementsAre("judge 1005", "judge 1005"));
}

TEST_F(ReporterTest, SameInputDeviceIsJudgedOnce) {
    DeviceInfo keyboard;
    keyboard.deviceType = 1;
    keyboard.deviceId = 5;
    Judge("input5", keyboard);
    Judge("input5", keyboard);
    EXPECT_THAT(Calls(), ElementsAre("judge 5"));
    Removed("input5");
    Judge("input5", keyboard);
    EXPECT_THAT(Calls(), ElementsAre("update 5 0", "judge 5"));
}

TEST_F(ReporterTest, DeviceThatHasBecomeAnotherIsRemovedFirst) {
    Judge("1-2", Disk(1005));
    reporter_.drain();
    DeviceInfo grown = Disk(1005);
    grown.interfaceClassList = {8, 3};
    Judge("1-2", grown);
    reporter_.drain();
    Judge("1-2", Disk(1006));
    reporter_.drain();
    Judge("1-2", std::nullopt);
    EXPECT_THAT(Calls(), ElementsAre("judge 1005", "update 1005 0", "judge 1005", "update 1005 0",
                                     "judge 1006", "update 1006 0"));
}

TEST_F(ReporterTest, OnlyWhatIsPresentIsKept) {
    Judge("1-1", Disk(1001));
    Judge("1-2", Disk(1002));
    Judge("1-3", Disk(1003));
    Calls();
    reporter_.keep_only({{"1-2", "1-9"}, {}});
    EXPECT_THAT(Calls(), UnorderedElementsAre("update 1001 0", "update 1003 0"));
}

TEST_F(ReporterTest, NothingIsReportedWhileThereIsNoService) {
    Judge("1-2", Disk(1005));
    Calls();
    reporter_.set_service(nullptr);
    Judge("1-3", Disk(1006));
    Removed("1-2");
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ReporterTest, NewServiceIsNotToldOfRemovalsOfWhatTheOldOneKnew) {
    Judge("1-2", Disk(1005));
    Calls();
    const sp<FakeService> next = new FakeService;
    next->note_lists = false;
    reporter_.set_service(nullptr);
    reporter_.set_service(next);
    Removed("1-2");
    reporter_.drain();
    EXPECT_THAT(next->Take(), IsEmpty());
}

TEST_F(ReporterTest, DeviceThatDoesNotAnswerHoldsUpNoOther) {
    std::promise<void> answer;
    const auto answered = answer.get_future().share();
    fake_->allow = [answered](const DeviceInfo& info) {
        if (info.deviceId == 1001) answered.wait();
        return true;
    };
    Judge("1-1", Disk(1001));
    Removed("1-1");
    for (int32_t id = 1002; id < 1010; ++id) Judge("1-" + std::to_string(id), Disk(id));
    EXPECT_THAT(fake_->TakeAtLeast(8),
                UnorderedElementsAre("judge 1002", "judge 1003", "judge 1004", "judge 1005",
                                     "judge 1006", "judge 1007", "judge 1008", "judge 1009"));
    answer.set_value();
    EXPECT_THAT(Calls(), ElementsAre("judge 1001", "update 1001 0"));
}

TEST_F(ReporterTest, DeviceIsReadOnTheThreadThatReportsIt) {
    std::promise<void> readable;
    reporter_.judge({"1-1"}, [wait = readable.get_future().share()] {
        wait.wait();
        Sighting seen;
        seen.info = Disk(1001);
        return seen;
    });
    Judge("1-2", Disk(1002));
    EXPECT_THAT(fake_->TakeAtLeast(1), ElementsAre("judge 1002"));
    readable.set_value();
    EXPECT_THAT(Calls(), ElementsAre("judge 1001"));
}

TEST_F(ReporterTest, ReportsOfOneDeviceStayInOrder) {
    for (int32_t round = 0; round < 100; ++round) {
        const std::string number = std::to_string(round);
        Judge("1-1", Disk(round));
        Removed("1-1");
        EXPECT_THAT(Calls(), ElementsAre("judge " + number, "update " + number + " 0"));
    }
}

TEST_F(ReporterTest, EveryReportIsALine) {
    fake_->allow = [](const DeviceInfo& info) { return info.vendorId == 0x951; };
    Judge("1-2.4", Disk(1005));
    Removed("1-2.4");
    reporter_.drain();
    EXPECT_THAT(Lines(), ElementsAre("1-2.4 usb 0951:1666 classes 8 allowed",
                                     "1-2.4 usb 0951:1666 classes 8 removed"));
    DeviceInfo composite;
    composite.interfaceClassList = {3, 255};
    Judge("1-3", composite);
    reporter_.drain();
    EXPECT_THAT(Lines(), ElementsAre("1-3 usb 0000:0000 classes 3,255 not-allowed"));
    Judge("1-4", DeviceInfo());
    reporter_.drain();
    EXPECT_THAT(Lines(), ElementsAre("1-4 usb 0000:0000 classes - not-allowed"));
    DeviceInfo keyboard;
    keyboard.deviceType = 1;
    keyboard.deviceClass = 0x101;
    keyboard.vendorId = 0x627;
    keyboard.productId = 1;
    Judge("input5", keyboard);
    reporter_.drain();
    EXPECT_THAT(Lines(), ElementsAre("input5 input 0627:0001 sources 0x101 not-allowed"));
}

TEST_F(ReporterTest, DeadServiceIsSeenInTheLine) {
    const RemoteService remote = Remote(fake_);
    reporter_.set_service(remote.service);
    remote.binder->Die();
    Judge("1-2", Disk(1005));
    Removed("1-2");
    reporter_.drain();
    EXPECT_THAT(Lines(), ElementsAre("1-2 usb 0951:1666 classes 8 unanswered",
                                     "1-2 usb 0951:1666 classes 8 unanswered"));
    EXPECT_THAT(fake_->Take(), IsEmpty());
}

}  // namespace
}  // namespace android::vus::hotplug
