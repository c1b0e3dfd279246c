// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "android/vus/class_names.h"
#include "tools/workbench/lint_internal.h"

namespace android::vus::workbench {

namespace {

using Mode = ClosedForm::Mode;

constexpr int32_t kHub = 0x09;
constexpr int32_t kKeyboard = 0x100;
constexpr int32_t kMouse = 0x2000;
// As the platform reports them, with their source class.
constexpr int32_t kKeyboardBits = 0x101;
constexpr int32_t kKeyboardAndMouseBits = 0x2103;
// A USB class that no rule can name.
constexpr int32_t kUnnamedClass = 0x04;

std::string name(int32_t code) {
    return std::string(className(code));
}

class Meaning {
  public:
    explicit Meaning(Findings* findings)
          : findings_(*findings),
            policy_(findings->policy()),
            form_(findings->form()),
            ids_(findings->neutralIds()),
            someIdsMatch_(form_.idsThat(true)),
            someIdsDoNot_(form_.idsThat(false)) {
        for (const ClassRule& rule : policy_.classes) lines_.emplace(rule.code, rule.line);
        for (const VendorRule& rule : policy_.vendors) {
            int& first = vendorLines_.emplace(rule.vendor, rule.line).first->second;
            first = std::min(first, rule.line);
        }
    }

    void lint() {
        if (form_.mode() == Mode::kDefault) return;
        lintExtremes();
        lintIds();
        if (form_.mode() == Mode::kWhitelist) {
            lintWhitelist();
        } else {
            lintBlacklist();
        }
    }

  private:
    bool hasNoClasses() const { return form_.usbClasses().empty() && form_.sources().empty(); }
    bool everyIdMatches() const { return !someIdsDoNot_; }
    bool nothingMatches() const { return hasNoClasses() && !someIdsMatch_; }

    void lintExtremes() {
        const bool whitelist = form_.mode() == Mode::kWhitelist;
        if (whitelist ? nothingMatches() : everyIdMatches()) {
            findings_.addJudged("refuses-everything", policy_.modeLine,
                                "No device at all is admitted: not a keyboard, not a hub, not the "
                                "network adapter by which a correction would arrive.",
                                "List what is plugged in, inside the case too; or, if this is what "
                                "you want, keep a way in that is no USB device.",
                                findings_.bareClaim(ids_), false);
        }
        if (whitelist ? everyIdMatches() : nothingMatches()) {
            findings_
                    .addJudged("admits-everything", policy_.modeLine,
                               "No device is refused, whatever it is.",
                               "Write mode=\"default\" if that is meant, so that a reader sees it.",
                               findings_.bareClaim(ids_), true);
        }
    }

    void lintIds() {
        for (const ListedVendor& each : form_.vendors()) {
            if (each.vendor > kLastId) {
                lintTooLarge(vendorLines_.at(each.vendor), "vendor", each.vendor,
                             {each.vendor & kLastId, 1});
            } else if (!each.whole && form_.countsAsWhole(each)) {
                lintCountsAsWhole(each);
            }
        }
        for (const VendorRule& rule : policy_.vendors) {
            if (rule.vendor > kLastId || rule.product <= kLastId) continue;
            lintTooLarge(rule.line, "product", rule.product, {rule.vendor, rule.product & kLastId});
        }
    }

    void lintTooLarge(int line, const std::string& what, int32_t id, Ids lowBits) {
        findings_.add("id-too-large", line,
                      "No device has the " + what + " id " + std::to_string(id) +
                              ": ids end at 65535.",
                      "Look the id up again. Its low 16 bits are " + std::to_string(id & kLastId) +
                              ", the id of the device shown.",
                      findings_.bareClaim(lowBits));
    }

    void lintCountsAsWhole(const ListedVendor& vendor) {
        const auto product = idOutside(vendor.products);
        if (!product) return;
        const std::string number = std::to_string(vendor.vendor);
        const VendorRule& by =
                *std::find_if(firstAfter(vendor.vendor), policy_.vendors.end(),
                              [](const VendorRule& rule) { return rule.product == kEveryProduct; });
        findings_.addJudged("products-count-as-whole", vendorLines_.at(vendor.vendor),
                            "Vendor " + number +
                                    " is listed by product, but every product of it matches: "
                                    "vendor " +
                                    std::to_string(by.vendor) + " (line " +
                                    std::to_string(by.line) +
                                    ") is listed whole and has a higher number.",
                            "List vendor " + std::to_string(by.vendor) +
                                    " by product too, and every other "
                                    "whole vendor above " +
                                    number + "; or, if all products of " + number +
                                    " are meant, write <vid vendorid=\"" + number + "\"/>.",
                            findings_.bareClaim({vendor.vendor, *product}),
                            form_.mode() == Mode::kWhitelist);
    }

    std::vector<VendorRule>::const_iterator firstAfter(int32_t vendor) const {
        return std::upper_bound(policy_.vendors.begin(), policy_.vendors.end(), vendor,
                                [](int32_t id, const VendorRule& rule) {
                                    return id < rule.vendor;
                                });
    }

    void lintWhitelist() {
        if (!everyIdMatches() && !form_.usbClasses().empty()) lintRideAlong();
        if (!everyIdMatches()) lintSplitInput();
        if (nothingMatches() || someIdsMatch_) return;
        if (!form_.listsClass(kKeyboard)) {
            findings_.addJudged("no-keyboard", policy_.modeLine,
                                "No keyboard is admitted. A keyboard is judged as an input device, "
                                "which no USB class admits.",
                                "<class>AINPUT_SOURCE_KEYBOARD</class>, or the keyboard's vendor "
                                "and product.",
                                inputClaim(kKeyboardBits, ids_), false);
        }
        findings_.addJudged("no-hub", policy_.modeLine,
                            "No hub is admitted. Where hubs are reported, one that is switched off "
                            "takes with it whatever is plugged into it. Only a vendor rule admits "
                            "a hub.",
                            "<vid vendorid=\"NUMBER\"/> of your docks and hubs, if your platform "
                            "reports them.",
                            usbClaim({kHub}, ids_), false);
    }

    void lintRideAlong() {
        const auto first = std::min_element(form_.usbClasses().begin(), form_.usbClasses().end(),
                                            [this](int32_t a, int32_t b) {
                                                return lines_.at(a) < lines_.at(b);
                                            });
        findings_.addJudged("ride-along", lines_.at(*first),
                            "Devices of the listed classes may have vendor-specific, HID and other "
                            "restricted interfaces besides, and those are admitted with them. "
                            "`policy surface` shows which drivers they reach.",
                            "List the products that you own instead of classes, where that is too "
                            "loose.",
                            usbClaim({*first, kNeutralClass}, ids_), true);
    }

    void lintSplitInput() {
        const bool keyboard = form_.listsClass(kKeyboard), mouse = form_.listsClass(kMouse);
        if (keyboard == mouse) return;
        const int32_t listed = keyboard ? kKeyboard : kMouse,
                      missing = keyboard ? kMouse : kKeyboard;
        findings_.addJudged("split-input", lines_.at(listed),
                            "A keyboard with a touch pad or mouse in one device is refused: every "
                            "source of an input device must be listed, and " +
                                    name(missing) + " is not.",
                            "<class>" + name(missing) + "</class> besides.",
                            inputClaim(kKeyboardAndMouseBits, ids_), false);
    }

    void lintBlacklist() {
        if (!everyIdMatches()) {
            for (const int32_t code : form_.usbClasses()) lintClassEvaded(code);
            for (const int32_t code : form_.sources()) lintSourceEvaded(code);
        }
        lintNotSwitchedOff();
    }

    void lintClassEvaded(int32_t code) {
        const int32_t other = unlistedClass();
        findings_.addJudged("class-evaded", lines_.at(code),
                            "A device with " + name(code) +
                                    " that adds an interface of any class "
                                    "that is not listed is admitted, whole.",
                            "Use a whitelist. A blacklist by class stops plain devices only.",
                            usbClaim({code, other}, ids_), true);
    }

    int32_t unlistedClass() const {
        for (const ClassName& row : kClassNames) {
            const bool mayBeListed = !isSource(row.code) && !isRestrictedClass(row.code);
            if (mayBeListed && !form_.listsClass(row.code)) return row.code;
        }
        return kUnnamedClass;
    }

    void lintSourceEvaded(int32_t code) {
        for (const ClassName& row : kClassNames) {
            if (!isSource(row.code) || form_.listsClass(row.code)) continue;
            findings_.addJudged("source-evaded", lines_.at(code),
                                "An input device with " + name(code) +
                                        " and a second source that "
                                        "is not listed is admitted.",
                                "List every source, or use a whitelist.",
                                inputClaim(code | row.code, ids_), true);
            return;
        }
    }

    // Refused input devices are only reported.
    void lintNotSwitchedOff() {
        if (!form_.sources().empty()) {
            const int32_t code = form_.sources().front();
            addNotSwitchedOff(lines_.at(code), inputClaim(code, ids_));
        } else if (someIdsMatch_) {
            addNotSwitchedOff(vendorLines_.at(someIdsMatch_->vendor),
                              inputClaim(kKeyboardBits, *someIdsMatch_));
        }
    }

    void addNotSwitchedOff(int line, const Claim& witness) {
        findings_.addJudged("input-not-switched-off", line,
                            "A keyboard, mouse or receiver that this refuses is reported as "
                            "refused and goes on working: as a USB device it is not judged, and "
                            "input devices are not switched off by the daemon.",
                            "Make sure that the input subsystem of your platform honours the "
                            "verdict.",
                            witness, false);
    }

    Findings& findings_;
    const Policy& policy_;
    const ClosedForm& form_;
    const Ids ids_;
    const std::optional<Ids> someIdsMatch_;
    const std::optional<Ids> someIdsDoNot_;
    std::map<int32_t, int> lines_;        // of the first rule for each class and source
    std::map<int32_t, int> vendorLines_;  // of the first rule for each vendor
};

}  // namespace

void lintMeaning(Findings* findings) {
    Meaning(findings).lint();
}

}  // namespace android::vus::workbench
