// SPDX-License-Identifier: Apache-2.0
//
// The linter: what a valid policy probably does not mean, found by its meaning and not by its
// looks. Each kind of finding is a row of the catalogue with an id that stays, and has a page of
// that name in docs/lint/. Each finding has a device that shows it, judged by the daemon's own
// judge().
//
// Linear in the number of rules but for sorting. Pure, but for the vendor names that it is given;
// any thread.

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "android/vus/judge.h"
#include "tools/workbench/vendor_names.h"

namespace android::vus::workbench {

enum class Level { kError, kWarning, kNote };
// "error", "warning", "note": SARIF's words, too.
std::string_view nameOf(Level level);

struct LintRule {
    std::string_view id;
    Level level;
    std::string_view title;  // what is wrong, in general
};
// By id.
const std::vector<LintRule>& lintRules();
// The rule of that id; nullptr if there is none.
const LintRule* findLintRule(std::string_view id);

struct Finding {
    const LintRule* rule;
    int line;
    std::string message;
    std::string advice;  // what to write instead
    Claim witness;
    bool allowed;        // the verdict on the witness
    std::string reason;  // its reason
};

// What there is to say of a policy that was read from `text`, by line. `names` may be nullptr.
std::vector<Finding> lint(const std::string& text, const Policy& policy, const VendorNames* names);

}  // namespace android::vus::workbench
