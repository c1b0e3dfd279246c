// SPDX-License-Identifier: Apache-2.0
//
// What the parts of the linter share.

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/workbench/closed_form.h"
#include "tools/workbench/lint.h"

namespace android::vus::workbench {

// Takes the findings on one policy, and asks for the verdict on each one's device. One thread.
class Findings {
  public:
    Findings(const Policy& policy, const ClosedForm& form)
          : policy_(policy),
            form_(form),
            rules_(policy),
            neutralIds_(form.idsThat(false).value_or(Ids{1, 1})) {}

    const Policy& policy() const { return policy_; }
    const ClosedForm& form() const { return form_; }

    void add(std::string_view id, int line, std::string message, std::string advice,
             const Claim& witness);
    // The same for a claim about a verdict: ends the program if the judge does not agree.
    void addJudged(std::string_view id, int line, std::string message, std::string advice,
                   const Claim& witness, bool allowed);

    // By line.
    std::vector<Finding> take();

    // Ids for an example: some that no vendor rule matches, if there are any.
    Ids neutralIds() const { return neutralIds_; }
    // A device that matches vendor rules only, if at all.
    Claim bareClaim(Ids ids) const { return usbClaim({kNeutralClass}, ids); }

  private:
    const Policy& policy_;
    const ClosedForm& form_;
    const PolicyRules rules_;
    const Ids neutralIds_;
    std::vector<Finding> findings_;
};

// What the rules mean.
void lintMeaning(Findings* findings);
// Rules that can never matter.
void lintDeadRules(Findings* findings);
// What stands in the text and is not read, or is read as something else than it looks like.
void lintDocument(const std::string& text, Findings* findings);
// Vendors that nobody knows.
void lintVendors(const VendorNames& names, Findings* findings);

// "1 rule", "2 rules"
std::string counted(size_t count, std::string_view what);

}  // namespace android::vus::workbench
