// SPDX-License-Identifier: Apache-2.0
//
// What the change from one policy to another means: every difference in verdicts over all devices
// that anybody could build, each with a device that shows it. Exact both ways: no device is judged
// differently that no difference covers, and each difference's device is judged differently.
//
// It compares the closed forms: linear in the number of rules. Pure; any thread.

#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "tools/workbench/closed_form.h"

namespace android::vus::workbench {

struct Difference {
    enum class Subject {
        kUnlisted,       // devices that neither policy lists in any way
        kClass,          // code: devices of this USB class or input source
        kVendor,         // every product of the vendor
        kOtherProducts,  // every product of the vendor but those that either policy names
        kProduct,        // one product of the vendor
        kCombination,    // only devices that are listed by their class and by their ids, by one
                         // policy each: an example of those
    };
    Subject subject;
    bool admitted;  // by the new policy, and not by the old one; or the other way round
    int32_t code;   // of kClass
    Claim witness;  // has the vendor and the product
};

// Ascending by subject, and in each by code, vendor and product.
std::vector<Difference> differences(const ClosedForm& before, const ClosedForm& after);

// "every product of vendor 2385"
std::string describe(const Difference& difference);

}  // namespace android::vus::workbench
