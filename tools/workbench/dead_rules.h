// SPDX-License-Identifier: Apache-2.0
//
// The rules of a policy that can never matter: without all of them together no device that anybody
// could build is judged differently, and without any further rule one is. Pure; any thread.

#pragma once

#include <stddef.h>

#include <vector>

#include "tools/workbench/closed_form.h"

namespace android::vus::workbench {

struct DeadRule {
    enum class Cause {
        kRepeated,    // the rule of line `by` is the same
        kCovered,     // the rule of line `by` matches whatever this one does
        kImpossible,  // no device has such an id
    };
    Cause cause;
    bool isClass;
    size_t index;  // into the policy's classes, or its vendors
    int line;
    int by;  // kNoLine of kImpossible, and where many rules together cover
};

std::vector<DeadRule> deadRules(const Policy& policy, const ClosedForm& form);

}  // namespace android::vus::workbench
