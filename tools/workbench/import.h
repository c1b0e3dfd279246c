// SPDX-License-Identifier: Apache-2.0
//
// Rules of another language (rule_language.h) as a whitelist of ours.
//
// There, rules are asked in their order, the first that fits decides, and what none fits is
// blocked. Here a list has no order and no exception. So a rule that allows becomes one of ours
// only if it says no more than ours can, and no rule before it forbids a part of what it allows.
// What is left out is refused: in doubt, the imported policy admits less.

#pragma once

#include <string>
#include <vector>

#include <json/value.h>

namespace android::vus::workbench {

struct NotImported {
    int line;
    std::string text;
    std::string why;
};

struct ImportedPolicy {
    std::string text;
    std::vector<NotImported> left_out;
    std::vector<std::string> warnings;
    size_t rules = 0;  // that were imported
};

// For programs.
Json::Value toJson(const ImportedPolicy& imported);

// With `loose`, a rule that allows one id and asks for more (a serial number, a port) is imported
// by its id alone, with a warning.
ImportedPolicy importRules(const std::string& text, bool loose);

}  // namespace android::vus::workbench
