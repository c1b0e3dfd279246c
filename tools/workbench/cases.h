// SPDX-License-Identifier: Apache-2.0
//
// Tests of a policy: devices with the verdict that each has to get. A file of them is an object,
//
//   {"policy": "fleet.xml",
//    "cases": [{"name": "disk", "device": {...}, "verdict": "allowed",
//               "rule": "class USB_CLASS_MASS_STORAGE"}]}
//
// or a list of cases (list.h), with the policy named elsewhere. The verdict is "allowed", "refused"
// or "input" (left to the input subsystem). One of "reason", "rule" and "line" may say more.

#pragma once

#include <istream>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <json/value.h>

#include "android/vus/judge.h"
#include "android/vus/policy.h"
#include "tools/workbench/device.h"
#include "tools/workbench/explain.h"

namespace android::vus::workbench {

struct Case {
    std::string name;
    Device device;
    std::string verdict;
    std::optional<std::string> reason;  // the daemon's, as in its list
    std::optional<std::string> rule;    // as ruleText() has it
    std::optional<int32_t> line;        // of the rule
};

struct Cases {
    std::optional<std::string> policy;  // a path, relative to the file of the cases
    std::vector<Case> cases;
};

// Reads a file of cases. Returns what is wrong, with file and line; an empty text if nothing is.
std::string readCases(std::istream& in, const std::string& file, Cases* cases);

struct CaseResult {
    Case test;
    bool passed;
    std::string expected, got;  // "allowed by line 4", both in the words of what was asked for
};

// A rule in words: "class USB_CLASS_AUDIO", "vendor 1133", "product 1133:49948".
std::string ruleText(const Rule& rule);
// Every rule of a policy, by lines.
std::vector<Rule> rulesOf(const Policy& policy);

// Runs cases against a policy, which has to outlive it, and remembers which rules decided.
class CaseRunner {
  public:
    explicit CaseRunner(const Policy& policy) : policy_(policy), explainer_(policy) {}

    CaseResult run(const Case& test);
    // The rules by which no device matched so far.
    std::vector<Rule> untouched() const;

  private:
    const Policy& policy_;
    const Explainer explainer_;
    std::set<std::pair<int, std::string>> touched_;  // line and text: a line may hold several
};

// For programs.
Json::Value toJson(const CaseResult& result);

// The results in the format that build servers read.
std::string toJunit(const std::vector<CaseResult>& results, const std::string& suite);

}  // namespace android::vus::workbench
