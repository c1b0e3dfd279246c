// SPDX-License-Identifier: Apache-2.0

#include "android/vus/policy.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <system_error>
#include <utility>

#include <tinyxml2.h>

#include "android/vus/class_names.h"

namespace android::vus {

namespace {

using tinyxml2::XMLElement;

constexpr char kClassLogPrefix[] = "error in class val= ";
constexpr char kProductLogPrefix[] = "error in pid val= ";

using Result = std::optional<PolicyFailure>;

PolicyFailure failureAt(int line, std::string status, std::string_view logPrefix) {
    PolicyFailure failure;
    failure.status = std::move(status);
    failure.line = line;
    failure.logPrefix = logPrefix;
    return failure;
}

PolicyFailure failureOfRoot(int line, std::string status, std::string_view logPrefix) {
    PolicyFailure failure = failureAt(line, std::move(status), logPrefix);
    failure.logFirst = false;
    return failure;
}

PolicyFailure libraryFailure(const tinyxml2::XMLDocument& document) {
    PolicyFailure failure = failureAt(document.ErrorLineNum(), document.ErrorStr(), "");
    failure.library =
            XmlError{document.ErrorID(), tinyxml2::XMLDocument::ErrorIDToName(document.ErrorID()),
                     document.ErrorStr()};
    return failure;
}

// The rules by which a document becomes a policy.
class Reading {
  public:
    explicit Reading(const ParseObserver& observer) : observer_(observer) {}

    std::variant<Policy, PolicyFailure> of(const std::string& text) {
        tinyxml2::XMLDocument document(/*processEntities=*/true, tinyxml2::PRESERVE_WHITESPACE);
        document.Parse(text.data(), text.size());
        Result failure = document.Error() ? libraryFailure(document)
                                          : readRoot(document.FirstChildElement());
        std::stable_sort(policy_.vendors.begin(), policy_.vendors.end(),
                         [](const VendorRule& a, const VendorRule& b) {
                             return a.vendor < b.vendor;
                         });
        if (!failure) return std::move(policy_);
        failure->read = std::move(policy_);
        failure->hasMode = hasMode_;
        return std::move(*failure);
    }

  private:
    void observe(const ParseStep& step) const {
        if (observer_) observer_(step);
    }

    Result readRoot(const XMLElement* root) {
        // A document can be free of errors and of elements: one of comments only, say.
        const std::string name = root == nullptr ? "" : root->Value();
        const int line = root == nullptr ? kNoLine : root->GetLineNum();
        if (name != "usbconfig") {
            return failureOfRoot(line, "INVALID ROOT ELEMENT : " + name, "Invalid root element --");
        }
        const tinyxml2::XMLAttribute* mode = root->FindAttribute("mode");
        if (mode == nullptr) {
            return failureAt(line, "MODE NOT PRESENT", "error in ATTRIBUTE MODE value= ");
        }
        return readMode(*mode, root->FirstChildElement());
    }

    Result readMode(const tinyxml2::XMLAttribute& mode, const XMLElement* firstRule) {
        // Kept even if it turns out invalid: decisions then treat it as a whitelist.
        hasMode_ = true;
        policy_.mode = mode.Value();
        policy_.modeLine = mode.GetLineNum();
        observe({ParseStep::Kind::kMode, policy_.mode});
        if (policy_.mode == kModeDefault) return std::nullopt;
        if (policy_.mode != kModeWhitelist && policy_.mode != kModeBlacklist) {
            return failureOfRoot(policy_.modeLine, "INVALID MODE", "Invalid mode is set in xml--");
        }
        return readRules(firstRule);
    }

    Result readRules(const XMLElement* rule) {
        if (rule == nullptr) observe({ParseStep::Kind::kNoRules, ""});
        for (; rule != nullptr; rule = rule->NextSiblingElement()) {
            if (Result failure = readRule(*rule)) return failure;
        }
        return std::nullopt;
    }

    Result readRule(const XMLElement& rule) {
        const std::string_view name = rule.Value();
        if (name == "class") return readClass(rule);
        if (name == "vid") return readVendor(rule);
        return failureAt(rule.GetLineNum(), "INVALID TAG:" + std::string(name),
                         "error in class value= ");
    }

    Result readClass(const XMLElement& rule) {
        const char* text = rule.GetText();
        const int line = rule.GetLineNum();
        if (text == nullptr) return failureAt(line, "EMPTY CLASS VALUE", kClassLogPrefix);
        const uint32_t code = classCode(text);
        if (code == kNoClassCode || isRestricted(static_cast<int32_t>(code))) {
            return failureAt(line, std::string("INVALID CLASS VALUE:") + text, kClassLogPrefix);
        }
        policy_.classes.push_back({static_cast<int32_t>(code), text, line});
        observe({ParseStep::Kind::kClass, "", static_cast<int32_t>(code)});
        return std::nullopt;
    }

    bool isRestricted(int32_t code) const {
        if (!isRestrictedClass(code)) return false;
        observe({ParseStep::Kind::kRestrictedClass, "", code});
        return true;
    }

    Result readVendor(const XMLElement& rule) {
        const char* text = rule.Attribute("vendorid");
        const int line = rule.GetLineNum();
        if (text == nullptr) {
            return failureAt(line, "vendorid TAG NOT PRESENT", "error in ATTRIBUTE value= ");
        }
        int32_t vendor = 0;
        if (!readId(text, &vendor)) {
            return failureAt(line,
                             *text == '\0' ? "EMPTY VENDOR ID VALUE"
                                           : std::string("INVALID VENDOR ID VALUE:") + text,
                             "error in vid val= ");
        }
        const XMLElement* product = rule.FirstChildElement("pid");
        if (product != nullptr) return readProducts(vendor, product);
        policy_.vendors.push_back({vendor, kEveryProduct, line});
        return std::nullopt;
    }

    // From the first product on, every sibling is one, whatever its name.
    Result readProducts(int32_t vendor, const XMLElement* product) {
        for (; product != nullptr; product = product->NextSiblingElement()) {
            const char* text = product->GetText();
            const int line = product->GetLineNum();
            if (text == nullptr) {
                return failureAt(line, "EMPTY PRODUCT ID VALUE", kProductLogPrefix);
            }
            int32_t id = 0;
            if (!readId(text, &id)) {
                return failureAt(line, std::string("INVALID PRODUCT ID VALUE:") + text,
                                 kProductLogPrefix);
            }
            policy_.vendors.push_back({vendor, id, line});
        }
        return std::nullopt;
    }

    // Digits only, and no more of them than a signed 32-bit number holds.
    bool readId(std::string_view text, int32_t* id) const {
        observe({ParseStep::Kind::kNumber, text});
        if (!isDecimal(text)) return false;
        return std::from_chars(text.data(), text.data() + text.size(), *id).ec == std::errc();
    }

    const ParseObserver& observer_;
    Policy policy_;
    bool hasMode_ = false;
};

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace

bool isDecimal(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), isDigit);
}

std::variant<Policy, PolicyFailure> parsePolicy(const std::string& text,
                                                const ParseObserver& observer) {
    return Reading(observer).of(text);
}

}  // namespace android::vus
