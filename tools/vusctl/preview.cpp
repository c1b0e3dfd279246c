// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/preview.h"

#include <android-base/stringprintf.h>

#include "android/vus/class_names.h"
#include "android/vus/judge.h"
#include "tools/common/text.h"

namespace android::vus::ctl {

namespace {

constexpr int32_t kKeyboardSource = 0x100;

bool is_keyboard(const workbench::Device& device) {
    return device.type == workbench::DeviceType::kInput &&
           (inputSourcesOf(device.claim.deviceClass).bits & kKeyboardSource) != 0;
}

std::string line_of(const char* what, const workbench::Device& device) {
    const std::string keyboard = is_keyboard(device) ? " (a keyboard)" : "";
    return shortened(what + workbench::describe(device), kScreenWidth - keyboard.size()) +
           keyboard + "\n";
}

}  // namespace

std::string preview_of(const Policy& policy, const std::vector<workbench::ListedDevice>& listed) {
    const PolicyRules rules(policy);
    std::string refused_lines, allowed_lines;
    size_t refused = 0, allowed = 0, keyboards = 0, keyboards_left = 0;
    for (const auto& [device, is_allowed] : listed) {
        const bool will_be_allowed = judge(device.claim, rules).allowed;
        if (is_keyboard(device)) {
            ++keyboards;
            if (will_be_allowed) ++keyboards_left;
        }
        if (is_allowed && !will_be_allowed) {
            ++refused;
            refused_lines += line_of("  ", device);
        } else if (!is_allowed && will_be_allowed) {
            ++allowed;
            allowed_lines += line_of("  ", device);
        }
    }
    std::string text;
    if (refused > 0) {
        text += base::StringPrintf("%zu of %zu attached devices will be refused:\n", refused,
                                   listed.size()) +
                refused_lines;
    }
    if (allowed > 0) {
        text += base::StringPrintf("%zu of %zu attached devices will be allowed:\n", allowed,
                                   listed.size()) +
                allowed_lines;
    }
    if (text.empty()) {
        text = base::StringPrintf("nothing changes for the %zu attached devices\n", listed.size());
    }
    if (keyboards > 0 && keyboards_left == 0) text += "warning: no keyboard is left\n";
    return text;
}

}  // namespace android::vus::ctl
