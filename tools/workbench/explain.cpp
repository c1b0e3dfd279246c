// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/explain.h"

#include <algorithm>
#include <set>
#include <utility>

#include <android-base/stringprintf.h>
#include <android-base/strings.h>

#include "android/vus/class_names.h"
#include "tools/common/text.h"
#include "tools/workbench/json.h"
#include "tools/workbench/walk.h"

namespace android::vus::workbench {

namespace {

using base::StringPrintf;

constexpr size_t kWidth = 80;

std::string classElement(int32_t code) {
    return "<class>" + std::string(className(code)) + "</class>";
}

std::string productElement(const Claim& claim) {
    return StringPrintf("<vid vendorid=\"%d\"><pid>%d</pid></vid>", claim.vendorId,
                        claim.productId);
}

bool canBeListed(int32_t code) {
    return !isRestrictedClass(code) && className(code) != " ";
}

void insertVendor(Policy* policy, const VendorRule& rule) {
    const auto behind =
            std::find_if(policy->vendors.begin(), policy->vendors.end(),
                         [&rule](const VendorRule& each) { return each.vendor > rule.vendor; });
    policy->vendors.insert(behind, rule);
}

// Looks for what would admit a device that a policy refused.
class Remedies {
  public:
    // `excerpt` has the rules that can matter to the device, and `policy` all. `opened` is how many
    // vendors of whom only products match would be opened by a rule for the device's whole vendor.
    Remedies(const Policy& policy, Policy excerpt, const std::optional<VendorRule>& highestWhole,
             size_t opened, const Claim& claim)
          : policy_(policy),
            excerpt_(std::move(excerpt)),
            highest_whole_(highestWhole),
            opened_(opened),
            claim_(claim) {}

    std::vector<Remedy> of(const Judgement& refusal) {
        if (!refusal.matched.empty()) {
            removeRules();
        } else {
            addClasses();
            addProduct();
            addVendor();
        }
        return std::move(found_);
    }

  private:
    bool admits(const Policy& changed) const { return judge(claim_, PolicyRules(changed)).allowed; }

    void offer(const Policy& changed, const std::string& change, const std::string& also) {
        if (admits(changed)) found_.push_back({change, also});
    }

    std::vector<int32_t> missingClasses() const {
        const PolicyRules rules(excerpt_);
        std::vector<int32_t> missing;
        const std::vector<int32_t> codes = claim_.interfaceClasses.empty()
                                                   ? inputSourcesOf(claim_.deviceClass).sources
                                                   : claim_.interfaceClasses;
        for (const int32_t code : codes) {
            const bool known = std::find(missing.begin(), missing.end(), code) != missing.end();
            if (!known && canBeListed(code) && !rules.classRule(code)) missing.push_back(code);
        }
        return missing;
    }

    void addClasses() {
        Policy changed = excerpt_;
        std::string change = "add";
        for (const int32_t code : missingClasses()) {
            changed.classes.push_back({code, std::string(className(code)), kNoLine});
            change += " " + classElement(code);
        }
        const bool input = claim_.interfaceClasses.empty();
        offer(changed, change,
              input ? "every input device that has only these sources and listed ones"
                    : "every device with these classes, listed and restricted ones only");
    }

    void addProduct() {
        Policy changed = excerpt_;
        insertVendor(&changed, {claim_.vendorId, claim_.productId, kNoLine});
        const bool whole = PolicyRules(changed).wholeVendorRule(claim_.vendorId).has_value();
        offer(changed, "add " + productElement(claim_),
              whole ? StringPrintf("every product of vendor %d, because vendor %d, which is "
                                   "higher, "
                                   "is listed whole: line %d (surprise 4)",
                                   claim_.vendorId, highest_whole_->vendor, highest_whole_->line)
                    : "whatever claims to be this product");
    }

    void addVendor() {
        Policy changed = excerpt_;
        insertVendor(&changed, {claim_.vendorId, kEveryProduct, kNoLine});
        std::string also = "whatever claims to be of this vendor";
        if (opened_ > 0) {
            also += StringPrintf(
                    ", and every product of %zu lower vendor%s listed with products "
                    "(surprise 4)",
                    opened_, opened_ == 1 ? "" : "s");
        }
        offer(changed, StringPrintf("add <vid vendorid=\"%d\"/>", claim_.vendorId), also);
    }

    // What refuses by a match admits when the rules that match are gone, one after the other.
    void removeRules() {
        Policy changed = excerpt_;
        std::set<int> lines;
        for (Judgement now = judge(claim_, PolicyRules(changed)); !now.allowed;
             now = judge(claim_, PolicyRules(changed))) {
            if (now.matched.empty()) return;
            removeRule(now.matched.front(), &changed, &lines);
        }
        std::vector<std::string> numbers;
        for (const int line : lines) numbers.push_back(std::to_string(line));
        offer(changed,
              (lines.size() == 1 ? "remove line " : "remove lines ") + base::Join(numbers, ", "),
              "every other device that only these lines refuse");
    }

    // Every repetition of it as well, which would take its place. A vendor that counts as listed
    // whole because a higher one is has to be taken out itself.
    void removeRule(const Rule& rule, Policy* changed, std::set<int>* lines) {
        if (rule.kind == Rule::Kind::kClass) {
            for (const ClassRule& each : policy_.classes) {
                if (each.code == rule.id) lines->insert(each.line);
            }
            removeFrom(&changed->classes,
                       [&rule](const ClassRule& each) { return each.code == rule.id; });
            return;
        }
        const bool own = rule.id == claim_.vendorId;
        removeFrom(&changed->vendors, [&](const VendorRule& each) {
            const bool goes =
                    each.vendor == claim_.vendorId && (!own || each.product == rule.product);
            if (goes) lines->insert(each.line);
            return goes;
        });
    }

    template <typename List, typename Condition>
    static void removeFrom(List* list, Condition condition) {
        list->erase(std::remove_if(list->begin(), list->end(), condition), list->end());
    }

    const Policy& policy_;
    const Policy excerpt_;
    const std::optional<VendorRule>& highest_whole_;
    const size_t opened_;
    const Claim& claim_;
    std::vector<Remedy> found_;
};

// The lines of a walk indent themselves; ids of ten digits are as long as they are.
std::string walkLine(const std::string& line) {
    constexpr size_t kIndent = 4;
    if (kIndent + character_count(line) > kWidth) return wrapped(line, kIndent + 2, kWidth);
    return std::string(kIndent, ' ') + line + "\n";
}

}  // namespace

const char* Explanation::verdict() const {
    if (screening != Screening::kJudged) return "input";
    return judgement.allowed ? "allowed" : "refused";
}

Explainer::Explainer(const Policy& policy) : policy_(policy) {
    frame_.mode = policy.mode;
    std::set<int32_t> known;
    for (const ClassRule& rule : policy.classes) {
        if (known.insert(rule.code).second) frame_.classes.push_back(rule);
    }
    for (const VendorRule& rule : policy.vendors) {
        const bool higher = !highest_whole_ || rule.vendor > highest_whole_->vendor;
        if (rule.product == kEveryProduct && higher) highest_whole_ = rule;
    }
    for (const VendorRule& rule : policy.vendors) {
        const bool closed = !highest_whole_ || rule.vendor > highest_whole_->vendor;
        const bool repeated = !closed_vendors_.empty() && closed_vendors_.back() == rule.vendor;
        if (closed && !repeated) closed_vendors_.push_back(rule.vendor);
    }
}

Explanation Explainer::explain(const Device& device) const {
    Explanation explanation;
    explanation.device = device;
    explanation.screening = screeningOf(device);
    if (explanation.screening == Screening::kLeftToInput) return explanation;
    const PolicyRules rules(policy_);
    explanation.judgement = judge(device.claim, rules);
    explanation.walk = walkOf(explanation.judgement, device.claim, rules);
    if (explanation.judgement.allowed) return explanation;
    // The rules of the device's vendor, and those by which it may count as listed whole, are all
    // that can matter: a policy of many rules is not copied for each device.
    Policy excerpt = frame_;
    const auto [first, last] = std::equal_range(policy_.vendors.begin(), policy_.vendors.end(),
                                                VendorRule{device.claim.vendorId, 0, 0},
                                                [](const VendorRule& one, const VendorRule& other) {
                                                    return one.vendor < other.vendor;
                                                });
    excerpt.vendors.assign(first, last);
    if (highest_whole_ && highest_whole_->vendor != device.claim.vendorId) {
        insertVendor(&excerpt, *highest_whole_);
    }
    const auto opened = std::lower_bound(closed_vendors_.begin(), closed_vendors_.end(),
                                         device.claim.vendorId) -
                        closed_vendors_.begin();
    explanation.remedies =
            Remedies(policy_, excerpt, highest_whole_, static_cast<size_t>(opened), device.claim)
                    .of(explanation.judgement);
    return explanation;
}

std::string screeningText(Screening screening) {
    switch (screening) {
        case Screening::kJudged:
            return "";
        case Screening::kLeftToInput:
            return "nothing but HID interfaces: left to the input subsystem. The USB side answers "
                   "\"no\", and switches nothing off; the keyboard, mouse or the like is judged as "
                   "an input device of its own.";
        case Screening::kUnknown:
            return "nothing but HID interfaces: left to the input subsystem, which reports the "
                   "keyboard, mouse or the like as an input device of its own. If it sends no "
                   "input events (vendor HID), the policy decides, as follows:";
    }
    return "";
}

std::string toText(const Explanation& explanation) {
    const Judgement& judgement = explanation.judgement;
    std::string text = shortened(describe(explanation.device), kWidth) + "\n";
    if (explanation.screening != Screening::kJudged) {
        text += wrapped(screeningText(explanation.screening), 2, kWidth);
        if (explanation.screening == Screening::kLeftToInput) return text;
    }
    std::string verdict = judgement.allowed ? "allowed" : "refused";
    for (const Rule& rule : judgement.matched) {
        verdict += (&rule == &judgement.matched.front() ? " by " : ", ") + lineOf(rule);
    }
    text += "  " + shortened(verdict, kWidth - 2) + "\n";
    text += wrapped(printable(judgement.reason), 2, kWidth);
    for (const std::string& line : explanation.walk) text += walkLine(line);
    for (const Remedy& remedy : explanation.remedies) {
        text += wrapped("would be admitted: " + remedy.change, 2, kWidth);
        text += wrapped("and with it: " + remedy.also, 4, kWidth);
    }
    return text;
}

Json::Value toJson(const Explanation& explanation) {
    Json::Value value(Json::objectValue);
    value["device"] = toJson(explanation.device);
    value["verdict"] = explanation.verdict();
    if (explanation.screening == Screening::kLeftToInput) return value;
    value["mode"] = explanation.judgement.mode;
    value["reason"] = explanation.judgement.reason;
    if (explanation.screening == Screening::kUnknown) {
        value["verdictIfVendorHid"] = explanation.judgement.allowed ? "allowed" : "refused";
    }
    Json::Value& lines = value["lines"] = Json::Value(Json::arrayValue);
    for (const Rule& rule : explanation.judgement.matched) lines.append(rule.line);
    Json::Value& walk = value["walk"] = Json::Value(Json::arrayValue);
    for (const std::string& line : explanation.walk) walk.append(line);
    Json::Value& remedies = value["remedies"] = Json::Value(Json::arrayValue);
    for (const Remedy& remedy : explanation.remedies) {
        Json::Value each(Json::objectValue);
        each["change"] = remedy.change;
        each["also"] = remedy.also;
        remedies.append(each);
    }
    return value;
}

}  // namespace android::vus::workbench
