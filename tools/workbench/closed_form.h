// SPDX-License-Identifier: Apache-2.0
//
// The closed form of a policy: which devices match it, as a few sets.
//
// However many rules a policy has, whether a device matches depends on four questions only: are its
// interface classes (those aside that take no part) all listed, are its input sources all listed,
// does its vendor count as listed whole, is its product listed. So the devices that anybody could
// ever build fall into finitely many kinds, and a question about all of them ("does any ...?") is
// answered by looking at one of each. Building it is linear in the number of rules but for the
// sorting.
//
// It is for finding devices, not for deciding on them: whoever shows one asks judge() first.
//
// A plain value; any thread may read one that nobody changes. It does not refer to the policy.

#pragma once

#include <stdint.h>

#include <optional>
#include <vector>

#include "android/vus/judge.h"

namespace android::vus::workbench {

// USB and input devices have ids of 16 bits, though a rule may name a higher one, and a device of
// any kind has one of each.
inline constexpr int32_t kLastId = 0xFFFF;
// Interface classes are a byte.
inline constexpr int32_t kLastClass = 0xFF;
// An interface that takes no part in class rules, as an example. Not HID: a USB device with nothing
// but HID interfaces is not judged at all.
inline constexpr int32_t kNeutralClass = 0xFF;

// The numbers by which vendor rules know a device.
struct Ids {
    int32_t vendor;
    int32_t product;
};

// The rules of one vendor.
struct ListedVendor {
    int32_t vendor;
    bool whole = false;             // by a rule of its own
    std::vector<int32_t> products;  // ascending, each once
};

class ClosedForm {
  public:
    explicit ClosedForm(const Policy& policy);

    enum class Mode { kDefault, kWhitelist, kBlacklist };
    Mode mode() const { return mode_; }

    // Listed USB classes and input sources; ascending, each once.
    const std::vector<int32_t>& usbClasses() const { return usbClasses_; }
    const std::vector<int32_t>& sources() const { return sources_; }
    // By vendor, each once.
    const std::vector<ListedVendor>& vendors() const { return vendors_; }
    const ListedVendor* find(int32_t vendor) const;

    // The highest vendor with a whole rule of its own; -1 if there is none.
    int32_t highestWhole() const { return highestWhole_; }
    // A vendor that is listed counts as whole if it or any higher one is listed whole.
    bool countsAsWhole(const ListedVendor& vendor) const { return vendor.vendor <= highestWhole_; }

    bool listsClass(int32_t code) const;  // a USB class or an input source
    bool matches(Ids ids) const;

    // The verdict on a device of which the class rules and the vendor rules say this.
    bool admits(bool classMatches, bool idsMatch) const;

    // Ids that match, and ids that do not; nothing if there are none. Given a vendor, of that
    // vendor; given a product, with that product.
    std::optional<Ids> idsThat(bool match, std::optional<int32_t> vendor = {},
                               std::optional<int32_t> product = {}) const;

  private:
    std::optional<Ids> idsOfVendor(bool match, int32_t vendor,
                                   std::optional<int32_t> product) const;

    Mode mode_;
    std::vector<int32_t> usbClasses_;
    std::vector<int32_t> sources_;
    std::vector<ListedVendor> vendors_;
    int32_t highestWhole_ = -1;
};

// The lowest id from 1 on (0 comes last: it looks like a mistake) that is not in an ascending list;
// nothing if the list holds all.
std::optional<int32_t> idOutside(const std::vector<int32_t>& ascending);

// USB class codes are below the input sources.
bool isSource(int32_t code);

// Devices as examples.
Claim usbClaim(std::vector<int32_t> interfaceClasses, Ids ids);
Claim inputClaim(int32_t sourceBits, Ids ids);
// With nothing but the one class or source.
Claim claimOfClass(int32_t code, Ids ids);

}  // namespace android::vus::workbench
