// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/device_node.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <thread>

#include "tests/support/world.h"

namespace android::vus::hotplug {
namespace {

constexpr char kNode[] = "/data/nodes/event7";
constexpr char kPlace[] = "/sys/class/input/event7";
// Whoever waits for nothing waits until the test is ended.
constexpr std::chrono::hours kForEver(1);

class DeviceNodeTest : public testing::Test {
  protected:
    void SetUp() override {
        EmptyWorld();
        MakeDir("/data/nodes");
    }
};

TEST_F(DeviceNodeTest, NodeThatIsThereIsOpened) {
    WriteFile(kNode, "");
    EXPECT_TRUE(open_node(kNode, O_RDONLY, kPlace).ok());
}

TEST_F(DeviceNodeTest, NodeThatComesLaterIsWaitedFor) {
    MakeDir(kPlace);
    std::thread maker([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        WriteFile(kNode, "");
    });
    EXPECT_TRUE(open_node(kNode, O_RDONLY, kPlace, kForEver).ok());
    maker.join();
}

TEST_F(DeviceNodeTest, DeviceThatIsGoneIsNotWaitedFor) {
    EXPECT_FALSE(open_node(kNode, O_RDONLY, kPlace, kForEver).ok());
}

TEST_F(DeviceNodeTest, DeviceThatGoesMeanwhileIsNotWaitedFor) {
    MakeDir(kPlace);
    std::thread remover([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        RemoveTree(kPlace);
    });
    EXPECT_FALSE(open_node(kNode, O_RDONLY, kPlace, kForEver).ok());
    remover.join();
}

TEST_F(DeviceNodeTest, PatienceEnds) {
    MakeDir(kPlace);
    EXPECT_FALSE(open_node(kNode, O_RDONLY, kPlace, std::chrono::milliseconds(5)).ok());
}

// A node that must not be opened does not become another one by waiting.
TEST_F(DeviceNodeTest, OnlyWhatIsMissingIsWaitedFor) {
    MakeDir(kPlace);
    MakeDir(kNode);
    EXPECT_FALSE(open_node(kNode, O_RDWR, kPlace, kForEver).ok());
}

}  // namespace
}  // namespace android::vus::hotplug
