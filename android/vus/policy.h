// SPDX-License-Identifier: Apache-2.0

// A policy as a value: what the administrator's file says, and where it says it.
//
// parsePolicy() is the one reading of the format, for the daemon and for every tool. It is pure: it
// opens no file, writes no log, and touches nothing that outlives it; whoever wants to know how it
// went on (the daemon logs each step) hands it an observer. docs/policy-guide.md describes the
// format, judge.h what the rules decide.
//
// A Policy owns its texts and is a plain value: any thread may read one that nobody changes.

#pragma once

#include <stdint.h>

#include <functional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace android::vus {

inline constexpr char kModeDefault[] = "default";
inline constexpr char kModeWhitelist[] = "whitelist";
inline constexpr char kModeBlacklist[] = "blacklist";

// The product id that stands for every product of a vendor.
inline constexpr int32_t kEveryProduct = -1;
// The line of what stands in no file.
inline constexpr int kNoLine = 0;

// A "class" element.
struct ClassRule {
    int32_t code;
    std::string name;  // as written
    int line;
};

// A "vid" element without products, or one product of a "vid".
struct VendorRule {
    int32_t vendor;
    int32_t product;  // or kEveryProduct
    int line;         // of the "vid", or of the product
};

struct Policy {
    std::string mode = kModeDefault;
    int modeLine = kNoLine;
    std::vector<ClassRule> classes;   // in file order, duplicates kept
    std::vector<VendorRule> vendors;  // by vendor; those of one vendor in file order

    // A list without rules, which matches nothing.
    bool hasNoRules() const { return classes.empty() && vendors.empty(); }
};

// What the XML library says of a file that it cannot read.
struct XmlError {
    int id;
    std::string name;
    std::string text;
};

// Why a text is no policy.
struct PolicyFailure {
    std::string status;  // what the status file says
    int line = kNoLine;  // where; kNoLine if the library does not know

    // How the log says it: log readers and the status file's watchers see the two in the order that
    // each failure has always had. A failure of the library has two lines of its own.
    std::string_view logPrefix;
    bool logFirst = true;
    std::variant<std::monostate, XmlError> library;

    // What had been read by then. A mode that was not reached is none: hasMode is false.
    Policy read;
    bool hasMode = false;
};

// What parsePolicy() comes across, in its order.
struct ParseStep {
    enum class Kind {
        kMode,             // text: the mode's value, before it is checked
        kNoRules,          // a list without a single element
        kNumber,           // text: what has to be a number, before it is checked
        kRestrictedClass,  // code: of a class that no rule may name
        kClass,            // code: of a class rule
    };
    Kind kind;
    std::string_view text;  // valid for the time of the call
    int32_t code = 0;
};
using ParseObserver = std::function<void(const ParseStep&)>;

// Reads a policy file's text.
std::variant<Policy, PolicyFailure> parsePolicy(const std::string& text,
                                                const ParseObserver& observer = nullptr);

// True for a non-empty text of decimal digits, however many.
bool isDecimal(std::string_view text);

}  // namespace android::vus
