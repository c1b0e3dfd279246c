// SPDX-License-Identifier: Apache-2.0
//
// What the process holds when main() begins. The other tests change it, so it is looked at before
// the first of them runs.

#include <gtest/gtest.h>

#include <optional>

#include "service_fixture.h"

namespace android::vus {
namespace {

using ::testing::IsEmpty;

struct InitialState {
    std::string mode = Util::configMode;
    std::vector<int32_t> classes = Util::classList;
    std::map<int32_t, std::string> class_names = Util::classMap;
    std::multimap<int32_t, int32_t> vendors = Util::vidPidMap;
    std::string status = Util::statusMessage;
    bool loaded = Util::xml_parse_status;
    bool debug_build = VUsbService::debugBuild;
    std::vector<DeviceInfo> devices;
};

std::optional<InitialState> initial_state;

class BeforeTheFirstTest : public ::testing::Environment {
    void SetUp() override {
        if (initial_state) return;  // a repeated run
        const LogCapture silence;
        initial_state.emplace();
        const sp<VUsbService> service = new VUsbService;
        service->getDeviceList(&initial_state->devices);
    }
};

[[maybe_unused]] ::testing::Environment* const before_the_first_test =
        ::testing::AddGlobalTestEnvironment(new BeforeTheFirstTest);

TEST(InitialStateTest, NoPolicyAndNoDeviceIsKnown) {
    ASSERT_TRUE(initial_state.has_value());
    EXPECT_EQ(initial_state->mode, "default");
    EXPECT_THAT(initial_state->classes, IsEmpty());
    EXPECT_THAT(initial_state->class_names, IsEmpty());
    EXPECT_THAT(initial_state->vendors, IsEmpty());
    EXPECT_EQ(initial_state->status, "SUCCESS");
    EXPECT_FALSE(initial_state->loaded);
    EXPECT_FALSE(initial_state->debug_build);
    EXPECT_THAT(initial_state->devices, IsEmpty());
}

}  // namespace
}  // namespace android::vus
