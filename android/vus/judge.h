// SPDX-License-Identifier: Apache-2.0

// The judgement: may a device be used, by which rule, and why not.
//
// judge() is written once, over the questions that Rules answers. Two answer them: a Policy, for
// every tool that wants to know what a file would do, and the tables in force (Util), for the
// daemon. It is pure: it reads no file, logs nothing and locks nothing. What it looked at on its
// way is in the judgement's steps; the daemon logs them, a tool explains by them.
//
// Class rules come before vendor rules, and the first rule that matches ends the search; the mode
// then says whether a match admits or refuses.

#pragma once

#include <stdint.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "android/vus/policy.h"

namespace android::vus {

// What a device says of itself. All of it is the device's own claim.
struct Claim {
    int32_t deviceClass = 0;  // of an input device: its source bits
    std::vector<int32_t> interfaceClasses;
    int32_t vendorId = 0;
    int32_t productId = 0;
};

// A rule of a policy.
struct Rule {
    enum class Kind { kClass, kVendor, kProduct };
    Kind kind;
    int32_t id;       // the class code or input source, or the vendor
    int32_t product;  // of kProduct; kEveryProduct of kVendor; 0 of kClass
    int line;         // kNoLine where no file is behind it
};

// The questions that a judgement asks. Threads: as the implementation says.
class Rules {
  public:
    virtual std::string_view mode() const = 0;
    // The first rule that lists the class or input source.
    virtual std::optional<Rule> classRule(int32_t code) const = 0;
    // The rule by which the vendor counts as listed whole: its own, or, if it has rules for
    // products only, that of the next higher vendor that is listed whole.
    virtual std::optional<Rule> wholeVendorRule(int32_t vendor) const = 0;
    // The rule for exactly this pair.
    virtual std::optional<Rule> productRule(int32_t vendor, int32_t product) const = 0;

  protected:
    // Not virtual: nobody owns one by this name, and one that lives as long as the process must not
    // be taken apart while other threads still ask it.
    ~Rules() = default;
};

// The rules of a policy, which has to outlive it.
class PolicyRules final : public Rules {
  public:
    explicit PolicyRules(const Policy& policy) : policy_(policy) {}
    std::string_view mode() const override { return policy_.mode; }
    std::optional<Rule> classRule(int32_t code) const override;
    std::optional<Rule> wholeVendorRule(int32_t vendor) const override;
    std::optional<Rule> productRule(int32_t vendor, int32_t product) const override;

  private:
    const Policy& policy_;
};

// One thing that a judgement looked at.
struct Step {
    enum class Kind {
        kInterface,          // value: the class of the next interface
        kRestrictedClass,    // value: a class that takes no part
        kListedClass,        // value: a class or input source that is listed
        kUnlistedInterface,  // value: the class that ended the class rules
        kSourceBits,         // value: the device's source bits, other: without their class
        kSingleSource,       // the bits are one source
        kSeveralSources,     // the bits are none or several
        kSource,             // value: the next source
        kUnlistedSource,     // value: the source that ended the class rules
        kListedVendor,       // value: the vendor, which counts as listed whole
        kListedProduct,      // value: the vendor, other: its product
    };
    Kind kind;
    int32_t value = 0;
    int32_t other = 0;
};

// Why no rule matched.
struct Miss {
    enum class Cause {
        kUnlistedClass,   // code: the class of an interface that is not listed; index: which one
        kRestrictedOnly,  // every interface's class takes no part in class rules
        kUnlistedSource,  // code: the source that is not listed; index: which of the sources
        kNoSource,        // neither interfaces nor a known input source
    };
    Cause cause;
    int32_t code = 0;
    size_t index = 0;
    int32_t vendor = 0;  // the vendor that was looked up after that
};

struct Judgement {
    std::string mode;
    bool allowed = true;
    std::string reason;
    std::vector<Rule> matched;  // by which the device matched: a vendor's, or one for each class
    std::optional<Miss> miss;   // why it did not; neither in the mode "default"
    std::vector<Step> steps;
};

Judgement judge(const Claim& claim, const Rules& rules);

// The first interface that is no HID. A USB device without one is no business of the USB rules
// unless it is a vendor's own HID: the input subsystem reports it a second time.
std::optional<int32_t> firstClassOtherThanHid(const std::vector<int32_t>& interfaceClasses);

}  // namespace android::vus
