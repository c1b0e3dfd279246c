// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/difference.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>
#include <set>
#include <utility>

#include "android/vus/class_names.h"

namespace android::vus::workbench {

namespace {

using Subject = Difference::Subject;

// Whether something is listed by the old policy, and by the new one.
struct Listed {
    bool before;
    bool after;

    bool byNeither() const { return !before && !after; }
    bool operator==(Listed other) const { return before == other.before && after == other.after; }
};

// Devices of which both policies say the same as of the example.
struct ClassRegion {
    Listed listed;
    std::optional<int32_t> code;  // nothing: no class that takes part
};
struct IdRegion {
    Listed listed;
    Ids ids;
    Subject subject;
};

Claim claimIn(const ClassRegion& region, Ids ids) {
    return region.code ? claimOfClass(*region.code, ids) : usbClaim({kNeutralClass}, ids);
}

std::vector<int32_t> unionOf(const std::vector<int32_t>& one, const std::vector<int32_t>& other) {
    std::vector<int32_t> all;
    std::set_union(one.begin(), one.end(), other.begin(), other.end(), std::back_inserter(all));
    return all;
}

// One comparison of two policies.
class Comparison {
  public:
    Comparison(const ClosedForm& before, const ClosedForm& after) : before_(before), after_(after) {
        addClasses();
        addIds();
    }

    std::vector<Difference> result() {
        if (const IdRegion* none = unlistedIds()) {
            add({{false, false}, std::nullopt}, *none, Subject::kUnlisted);
            for (const ClassRegion& region : classes_) add(region, *none, Subject::kClass);
        }
        for (const IdRegion& region : ids_) {
            if (region.listed.byNeither()) continue;
            add({{false, false}, std::nullopt}, region, region.subject);
        }
        addCombinations();
        std::stable_sort(found_.begin(), found_.end(), [](const auto& one, const auto& other) {
            return one.subject < other.subject;
        });
        return std::move(found_);
    }

  private:
    void addClasses() {
        for (const int32_t code : unionOf(before_.usbClasses(), after_.usbClasses())) {
            addClass(code);
        }
        for (const int32_t code : unionOf(before_.sources(), after_.sources())) addClass(code);
    }

    void addClass(int32_t code) {
        classes_.push_back({{before_.listsClass(code), after_.listsClass(code)}, code});
    }

    void addIds() {
        std::vector<int32_t> vendors;
        vendors.reserve(before_.vendors().size() + after_.vendors().size());
        for (const auto* form : {&before_, &after_}) {
            for (const ListedVendor& each : form->vendors()) vendors.push_back(each.vendor);
        }
        std::sort(vendors.begin(), vendors.end());
        vendors.erase(std::unique(vendors.begin(), vendors.end()), vendors.end());
        if (const auto unlisted = idOutside(vendors)) {
            ids_.push_back({{false, false}, {*unlisted, 1}, Subject::kUnlisted});
        }
        for (const int32_t vendor : vendors) {
            if (vendor <= kLastId) addVendor(vendor);
        }
    }

    void addVendor(int32_t vendor) {
        const ListedVendor *before = before_.find(vendor), *after = after_.find(vendor);
        const Listed whole = {before != nullptr && before_.countsAsWhole(*before),
                              after != nullptr && after_.countsAsWhole(*after)};
        static const std::vector<int32_t> kNone;
        std::vector<int32_t> apart;
        const std::vector<int32_t> named = unionOf(before == nullptr ? kNone : before->products,
                                                   after == nullptr ? kNone : after->products);
        for (const int32_t product : named) {
            if (product <= kLastId && !(listedPair({vendor, product}) == whole)) {
                apart.push_back(product);
            }
        }
        if (const auto other = idOutside(apart)) {
            ids_.push_back({whole,
                            {vendor, *other},
                            apart.empty() ? Subject::kVendor : Subject::kOtherProducts});
        }
        for (const int32_t product : apart) {
            const Ids ids{vendor, product};
            ids_.push_back({listedPair(ids), ids, Subject::kProduct});
        }
    }

    Listed listedPair(Ids ids) const { return {before_.matches(ids), after_.matches(ids)}; }

    // The first region of ids that neither policy lists.
    const IdRegion* unlistedIds() const {
        const auto at = std::find_if(ids_.begin(), ids_.end(), [](const IdRegion& region) {
            return region.listed.byNeither();
        });
        return at == ids_.end() ? nullptr : &*at;
    }

    // 1: only the new policy admits, -1: only the old one does, 0: they agree.
    int change(Listed byClass, Listed byIds) const {
        return static_cast<int>(after_.admits(byClass.after, byIds.after)) -
               static_cast<int>(before_.admits(byClass.before, byIds.before));
    }

    bool add(const ClassRegion& classes, const IdRegion& ids, Subject subject) {
        const int changed = change(classes.listed, ids.listed);
        if (changed == 0) return false;
        found_.push_back(
                {subject, changed > 0, classes.code.value_or(0), claimIn(classes, ids.ids)});
        return true;
    }

    // Where neither a device's classes alone nor its ids alone make the difference, as when one
    // policy admits by class what the other one refuses by vendor.
    void addCombinations() {
        const Listed nothing{false, false};
        const bool unlisted = unlistedIds() != nullptr;
        std::array<bool, 16> done{};
        for (const ClassRegion& classes : classes_) {
            for (const IdRegion& ids : oneOfEach()) {
                const int changed = change(classes.listed, ids.listed);
                const bool explained = (unlisted && change(classes.listed, nothing) == changed) ||
                                       change(nothing, ids.listed) == changed;
                if (changed == 0 || explained) continue;
                bool& cell = done.at(static_cast<size_t>(8 * classes.listed.before +
                                                         4 * classes.listed.after +
                                                         2 * ids.listed.before + ids.listed.after));
                if (!cell) cell = add(classes, ids, Subject::kCombination);
            }
        }
    }

    // An example of ids for each way in which they can be listed.
    std::vector<IdRegion> oneOfEach() const {
        std::vector<IdRegion> examples;
        for (const IdRegion& region : ids_) {
            const bool known =
                    std::any_of(examples.begin(), examples.end(), [&region](const IdRegion& each) {
                        return each.listed == region.listed;
                    });
            if (!known) examples.push_back(region);
        }
        return examples;
    }

    const ClosedForm& before_;
    const ClosedForm& after_;
    std::vector<ClassRegion> classes_;
    std::vector<IdRegion> ids_;
    std::vector<Difference> found_;
};

std::string productOf(const Claim& claim) {
    return "product " + std::to_string(claim.productId) + " of vendor " +
           std::to_string(claim.vendorId);
}

}  // namespace

std::vector<Difference> differences(const ClosedForm& before, const ClosedForm& after) {
    return Comparison(before, after).result();
}

std::string describe(const Difference& difference) {
    const Claim& witness = difference.witness;
    const std::string vendor = "vendor " + std::to_string(witness.vendorId);
    switch (difference.subject) {
        case Subject::kUnlisted:
            return "every device that neither policy lists";
        case Subject::kClass:
            return std::string(isSource(difference.code) ? "input devices with the source "
                                                         : "USB devices with the class ") +
                   std::string(className(difference.code));
        case Subject::kVendor:
            return "every product of " + vendor;
        case Subject::kOtherProducts:
            return "every other product of " + vendor;
        case Subject::kProduct:
            return productOf(witness);
        case Subject::kCombination:
            return "devices that one policy lists by their class, the other by their ids";
    }
    return "";
}

}  // namespace android::vus::workbench
