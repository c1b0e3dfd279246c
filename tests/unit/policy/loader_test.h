// SPDX-License-Identifier: Apache-2.0

// The fixture of the loader's tests: a policy and a status of an earlier load, which the load under
// test must not take for its own.

#pragma once

#include <map>
#include <string>
#include <vector>

#include "policy_test.h"

namespace android::vus {

using Classes = std::vector<int32_t>;
using Names = std::map<int32_t, std::string>;
using Vendors = std::multimap<int32_t, int32_t>;

// What an earlier load may have left; no load may take it for its own.
inline constexpr char kOldMode[] = "mode of an earlier load";
inline constexpr char kOldStatus[] = "status of an earlier load";
inline constexpr char kUntouched[] = "not written by this load";

inline std::string PolicyXml(const std::string& mode, const std::string& rules) {
    return "<usbconfig mode=\"" + mode + "\">" + rules + "</usbconfig>";
}

inline std::string Whitelist(const std::string& rules) {
    return PolicyXml("whitelist", rules);
}

inline std::string Written(const std::string& message) {
    return "I updateErrorFile called with error message : " + message;
}

class LoaderTest : public PolicyTest {
  protected:
    void SetUp() override {
        PolicyTest::SetUp();
        SetPolicy(kOldMode, {77}, {{77, "old"}}, {{77, 78}});
        Util::statusMessage = kOldStatus;
        WriteFile(kStatusFile, kUntouched);
    }

    static void ExpectEmptyTables() {
        EXPECT_THAT(Util::classList, ::testing::IsEmpty());
        EXPECT_THAT(Util::classMap, ::testing::IsEmpty());
        EXPECT_THAT(Util::vidPidMap, ::testing::IsEmpty());
    }
};

}  // namespace android::vus
