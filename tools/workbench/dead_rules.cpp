// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/dead_rules.h"

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

namespace android::vus::workbench {

namespace {

using Cause = DeadRule::Cause;

// One search through a policy's rules.
class Search {
  public:
    Search(const Policy& policy, const ClosedForm& form)
          : policy_(policy), rules_(policy.vendors), form_(form), firstBeyond_(rules_.size()) {
        nextWhole_.assign(rules_.size() + 1, rules_.size());
        for (size_t at = rules_.size(); at-- > 0;) {
            nextWhole_[at] = isWhole(at) ? at : nextWhole_[at + 1];
        }
    }

    std::vector<DeadRule> result() {
        searchClasses();
        findFirstBeyond();
        for (size_t begin = 0; begin < rules_.size();) {
            size_t end = begin;
            while (end < rules_.size() && rules_[end].vendor == rules_[begin].vendor) ++end;
            searchVendor(begin, end);
            begin = end;
        }
        return std::move(dead_);
    }

  private:
    void searchClasses() {
        // Where the vendor rules match every device, no class rule ever decides.
        const bool covered = !form_.idsThat(false);
        std::map<int32_t, int> seen;
        for (size_t at = 0; at < policy_.classes.size(); ++at) {
            const ClassRule& rule = policy_.classes[at];
            const auto [first, isNew] = seen.emplace(rule.code, rule.line);
            if (!isNew) {
                dead_.push_back({Cause::kRepeated, true, at, rule.line, first->second});
            } else if (covered) {
                dead_.push_back({Cause::kCovered, true, at, rule.line, kNoLine});
            }
        }
    }

    // A whole vendor that no device has matters all the same if it is the one by which lower
    // vendors count as listed whole. The search for one takes the lowest.
    void findFirstBeyond() {
        int32_t highestListed = -1, highestWhole = -1;
        for (size_t at = 0; at < rules_.size(); ++at) {
            const bool whole = rules_[at].product == kEveryProduct;
            if (rules_[at].vendor > kLastId) {
                if (!whole || highestListed <= highestWhole) continue;
                firstBeyond_ = at;
                return;
            }
            highestListed = rules_[at].vendor;
            if (whole) highestWhole = rules_[at].vendor;
        }
    }

    void searchVendor(size_t begin, size_t end) {
        const size_t whole = firstWhole(begin, end);
        if (rules_[begin].vendor > kLastId) {
            for (size_t at = begin; at < end; ++at) {
                if (at != firstBeyond_) add(Cause::kImpossible, at, kNoLine);
            }
        } else if (whole < end) {
            for (size_t at = begin; at < end; ++at) {
                if (at == whole) continue;
                addProduct(at, isWhole(at) ? Cause::kRepeated : Cause::kCovered,
                           rules_[whole].line);
            }
        } else if (rules_[begin].vendor <= form_.highestWhole()) {
            searchProductsOfCovered(begin, end);
        } else {
            searchProducts(begin, end);
        }
    }

    // One of the rules has to stay: it is what makes the vendor listed.
    void searchProductsOfCovered(size_t begin, size_t end) {
        const int by = rules_[firstWhole(end, rules_.size())].line;
        size_t kept = begin;
        while (kept < end && rules_[kept].product > kLastId) ++kept;
        if (kept == end) kept = begin;
        for (size_t at = begin; at < end; ++at) {
            if (at == kept) continue;
            const bool repeated = rules_[at].product == rules_[kept].product;
            addProduct(at, repeated ? Cause::kRepeated : Cause::kCovered,
                       repeated ? rules_[kept].line : by);
        }
    }

    void searchProducts(size_t begin, size_t end) {
        std::map<int32_t, int> seen;
        for (size_t at = begin; at < end; ++at) {
            const auto [first, isNew] = seen.emplace(rules_[at].product, rules_[at].line);
            if (!isNew || rules_[at].product > kLastId) {
                addProduct(at, Cause::kRepeated, first->second);
            }
        }
    }

    void addProduct(size_t at, Cause cause, int by) {
        if (rules_[at].product > kLastId) {
            add(Cause::kImpossible, at, kNoLine);
        } else {
            add(cause, at, by);
        }
    }

    void add(Cause cause, size_t at, int by) {
        dead_.push_back({cause, false, at, rules_[at].line, by});
    }

    bool isWhole(size_t at) const { return rules_[at].product == kEveryProduct; }

    size_t firstWhole(size_t begin, size_t end) const { return std::min(nextWhole_[begin], end); }

    const Policy& policy_;
    const std::vector<VendorRule>& rules_;
    const ClosedForm& form_;
    size_t firstBeyond_;
    std::vector<size_t> nextWhole_;  // for each rule, the first from it on for a whole vendor
    std::vector<DeadRule> dead_;
};

}  // namespace

std::vector<DeadRule> deadRules(const Policy& policy, const ClosedForm& form) {
    return Search(policy, form).result();
}

}  // namespace android::vus::workbench
