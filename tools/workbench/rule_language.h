// SPDX-License-Identifier: Apache-2.0
//
// Rules in the language of USBGuard, read into what they say:
//
//   allow|block|reject [VENDOR:PRODUCT] [ATTRIBUTE [OPERATOR] VALUE|{VALUE...}]... [if CONDITION]
//
// a rule a line, "#" begins a comment. Ids and interface types are hexadecimal, "*" stands for any.
// What a rule means is decided elsewhere (import.h). Stateless; any thread.

#pragma once

#include <stdint.h>

#include <optional>
#include <string>
#include <vector>

namespace android::vus::workbench {

// "046d:c31c", "046d:*", "*:*".
struct RuleId {
    std::optional<int32_t> vendor, product;  // nothing: any
};

// "08:06:50", "08:*:*".
struct InterfaceType {
    int32_t code = 0;
    std::optional<int32_t> subclass, protocol;  // nothing: any
};

struct ForeignRule {
    enum class Target { kAllow, kBlock, kReject };
    int line = 0;
    std::string text;  // as it stands there, blanks around it cut off
    Target target = Target::kAllow;
    std::vector<RuleId> ids;  // none: of any id
    std::string id_operator;  // "" where none stands there
    std::vector<InterfaceType> interfaces;
    std::string interface_operator;
    bool has_interfaces = false;
    std::vector<std::string> others;  // the names of its other attributes, "if" among them
};

struct ForeignLine {
    int line;
    std::string text;
    std::string error;  // what is wrong with it
};

struct ForeignRules {
    std::vector<ForeignRule> rules;
    std::vector<ForeignLine> errors;  // lines that are no rule
};

ForeignRules readForeignRules(const std::string& text);

}  // namespace android::vus::workbench
