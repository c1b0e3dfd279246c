// SPDX-License-Identifier: Apache-2.0
//
// The fixture of the policy's tests: an empty configuration directory, the policy as a process has
// it when it starts, and the log.

#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "android/vus/paths.h"
#include "android/vus/util.h"
#include "tests/support/world.h"

namespace android::vus {

using Strings = std::vector<std::string>;

class PolicyTest : public ::testing::Test {
  protected:
    void SetUp() override {
        EmptyWorld();
        MakeDir(kConfigDir);
        SetPolicy("default", {}, {}, {});
        Util::statusMessage = "SUCCESS";
        Util::xml_parse_status = false;
        logs_.Clear();
    }

    static void SetPolicy(const std::string& mode, const std::vector<int32_t>& classes,
                          const std::map<int32_t, std::string>& names,
                          const std::multimap<int32_t, int32_t>& vendors) {
        Util::configMode = mode;
        Util::classList = classes;
        Util::classMap = names;
        Util::vidPidMap = vendors;
    }

    static void Load(const std::string& xml) {
        WriteFile(kPolicyFile, xml);
        Util::createMapFromConfig(kPolicyFile);
    }

    // What an action logs: each line as the letter of its severity, a blank and the text.
    Strings LogOf(const std::function<void()>& action) {
        logs_.Clear();
        action();
        return logs_.Lines();
    }

    LogCapture logs_;
};

}  // namespace android::vus
