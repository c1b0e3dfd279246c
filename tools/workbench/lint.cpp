// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/lint.h"

#include <algorithm>
#include <utility>

#include <android-base/logging.h>

#include "tools/workbench/lint_internal.h"

namespace android::vus::workbench {

namespace {

constexpr Level E = Level::kError, W = Level::kWarning, N = Level::kNote;

}  // namespace

const std::vector<LintRule>& lintRules() {
    static const std::vector<LintRule> kRules = {
            {"admits-everything", W, "No device is refused"},
            {"class-evaded", W, "An added interface defeats a blacklist by class"},
            {"covered-rule", W, "A rule that never matters because others match all that it does"},
            {"hexadecimal-id", W, "An id that looks like a hexadecimal number, and is decimal"},
            {"id-too-large", E, "An id that no device has"},
            {"ignored-attribute", W, "An attribute that is not read"},
            {"ignored-element", W, "An element that is not read"},
            {"ignored-product", E, "A product that is not read, because it is not spelt \"pid\""},
            {"input-not-switched-off", N, "A refused keyboard or mouse goes on working"},
            {"leading-zero", W, "An id with a leading zero, as hexadecimal listings print it"},
            {"misnamed-product", W, "An element that is read as a product, whatever its name"},
            {"no-hub", N, "No hub is admitted"},
            {"no-keyboard", W, "No keyboard is admitted"},
            {"products-count-as-whole", E, "A vendor listed by product counts as listed whole"},
            {"refuses-everything", W, "No device is admitted"},
            {"repeated-rule", N, "A rule that stands there twice"},
            {"ride-along", N, "Restricted interfaces ride along with an admitted class"},
            {"rules-not-read", W, "Rules in the mode \"default\" are not read"},
            {"source-evaded", W, "A second source defeats a blacklist by input source"},
            {"split-input", N, "A keyboard with a touch pad or mouse is refused"},
            {"stray-text", W, "Text that is not read"},
            {"unknown-vendor", N, "A vendor that the system's database of USB ids does not know"},
    };
    return kRules;
}

std::string_view nameOf(Level level) {
    switch (level) {
        case Level::kError:
            return "error";
        case Level::kWarning:
            return "warning";
        case Level::kNote:
            return "note";
    }
    return "";
}

const LintRule* findLintRule(std::string_view id) {
    const std::vector<LintRule>& rules = lintRules();
    const auto at = std::lower_bound(rules.begin(), rules.end(), id,
                                     [](const LintRule& rule, std::string_view wanted) {
                                         return rule.id < wanted;
                                     });
    return at == rules.end() || at->id != id ? nullptr : &*at;
}

void Findings::add(std::string_view id, int line, std::string message, std::string advice,
                   const Claim& witness) {
    const LintRule* const rule = findLintRule(id);
    CHECK(rule != nullptr) << id;
    Judgement judgement = judge(witness, rules_);
    findings_.push_back({rule, line, std::move(message), std::move(advice), witness,
                         judgement.allowed, std::move(judgement.reason)});
}

void Findings::addJudged(std::string_view id, int line, std::string message, std::string advice,
                         const Claim& witness, bool allowed) {
    add(id, line, std::move(message), std::move(advice), witness);
    CHECK_EQ(findings_.back().allowed, allowed) << id << ": " << findings_.back().reason;
}

std::vector<Finding> Findings::take() {
    std::stable_sort(findings_.begin(), findings_.end(),
                     [](const Finding& one, const Finding& other) {
                         return one.line < other.line;
                     });
    return std::move(findings_);
}

std::string counted(size_t count, std::string_view what) {
    return std::to_string(count) + " " + std::string(what) + (count == 1 ? "" : "s");
}

std::vector<Finding> lint(const std::string& text, const Policy& policy, const VendorNames* names) {
    const ClosedForm form(policy);
    Findings findings(policy, form);
    lintDocument(text, &findings);
    lintMeaning(&findings);
    lintDeadRules(&findings);
    if (names != nullptr) lintVendors(*names, &findings);
    return findings.take();
}

}  // namespace android::vus::workbench
