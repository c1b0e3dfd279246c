// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include <tinyxml2.h>

#include "android/vus/class_names.h"
#include "tools/workbench/lint_internal.h"

namespace android::vus::workbench {

namespace {

using tinyxml2::XMLAttribute;
using tinyxml2::XMLElement;
using tinyxml2::XMLNode;

constexpr std::string_view kBlanks = " \t\r\n";
constexpr size_t kLongestQuote = 30;

bool isBlank(std::string_view text) {
    return text.find_first_not_of(kBlanks) == std::string_view::npos;
}

// A text of the file in a message: not too much of it.
std::string quoted(std::string_view text) {
    const size_t begin = text.find_first_not_of(kBlanks);
    text = begin == std::string_view::npos ? "" : text.substr(begin);
    text = text.substr(0, text.find_first_of(kBlanks.substr(1)));
    if (text.size() <= kLongestQuote) return "\"" + std::string(text) + "\"";
    return "\"" + std::string(text.substr(0, kLongestQuote)) + "...\"";
}

std::optional<int32_t> number(const char* text, int base) {
    if (text == nullptr || !isDecimal(text)) return std::nullopt;
    int32_t value = 0;
    const char* const end = text + strlen(text);
    if (std::from_chars(text, end, value, base).ec != std::errc()) return std::nullopt;
    return value;
}

// Walks over a document that was read without an error, and looks for what the reading passes by.
class Walk {
  public:
    explicit Walk(Findings* findings) : findings_(*findings) {}

    void over(const tinyxml2::XMLDocument& document) {
        const XMLElement* const root = document.FirstChildElement();
        device_ = findings_.bareClaim(findings_.neutralIds());
        passBy(document, /*taken=*/root);
        overAttributes(*root, "mode");
        if (findings_.form().mode() == ClosedForm::Mode::kDefault) {
            overDefault(*root);
            return;
        }
        passByTexts(*root);
        for (const XMLElement* rule = root->FirstChildElement(); rule != nullptr;
             rule = rule->NextSiblingElement()) {
            if (strcmp(rule->Value(), "class") == 0) {
                overClass(*rule);
            } else {
                overVendor(*rule);
            }
            device_ = findings_.bareClaim(findings_.neutralIds());
        }
    }

  private:
    void overDefault(const XMLElement& root) {
        const XMLElement* const rule = root.FirstChildElement();
        if (rule == nullptr) return;
        findings_.addJudged("rules-not-read", rule->GetLineNum(),
                            "The mode is \"default\": every device is admitted, and nothing below "
                            "the root is read.",
                            "mode=\"whitelist\" or mode=\"blacklist\" if the rules are meant; "
                            "remove them if not.",
                            device_, true);
    }

    void overClass(const XMLElement& rule) {
        device_ = claimOfClass(static_cast<int32_t>(classCode(rule.GetText())),
                               findings_.neutralIds());
        overAttributes(rule, nullptr);
        passBy(rule, textOf(rule));
    }

    void overVendor(const XMLElement& rule) {
        const char* const text = rule.Attribute("vendorid");
        vendor_ = *number(text, 10);
        const Ids ids = findings_.form()
                                .idsThat(true, vendor_ & kLastId)
                                .value_or(Ids{vendor_ & kLastId, 1});
        device_ = findings_.bareClaim(ids);
        checkZeros(rule.Attribute("vendorid"), "vendor", rule.GetLineNum());
        overAttributes(rule, "vendorid");
        passByTexts(rule);
        const XMLElement* const first = rule.FirstChildElement("pid");
        for (const XMLElement* child = rule.FirstChildElement(); child != first;
             child = child->NextSiblingElement()) {
            addIgnoredProduct(*child, first != nullptr);
        }
        for (const XMLElement* product = first; product != nullptr;
             product = product->NextSiblingElement()) {
            overProduct(*product);
        }
    }

    void overProduct(const XMLElement& product) {
        device_ =
                findings_.bareClaim({vendor_ & kLastId, *number(product.GetText(), 10) & kLastId});
        checkZeros(product.GetText(), "product", product.GetLineNum());
        if (strcmp(product.Value(), "pid") != 0) {
            findings_.add("misnamed-product", product.GetLineNum(),
                          "<" + std::string(product.Value()) +
                                  "> stands after a <pid> and is read "
                                  "as one: product " +
                                  product.GetText() + " is listed.",
                          "<pid>" + std::string(product.GetText()) +
                                  "</pid> if that is meant; a "
                                  "note belongs into a comment.",
                          device_);
        }
        overAttributes(product, nullptr);
        passBy(product, textOf(product));
    }

    void addIgnoredProduct(const XMLElement& child, bool hasProducts) {
        const std::string name = child.Value();
        const std::string vendor = std::to_string(vendor_);
        const auto meant = number(child.GetText(), 10);
        const Claim other = findings_.bareClaim(
                hasProducts ? Ids{vendor_ & kLastId, meant.value_or(1) & kLastId} : otherProduct());
        findings_.add("ignored-product", child.GetLineNum(),
                      hasProducts ? "<" + name + "> stands before the first <pid> and is not read."
                                  : "<" + name +
                                            "> is not <pid> and is not read, so that every "
                                            "product of vendor " +
                                            vendor + " is listed.",
                      "<pid>" + (meant ? std::to_string(*meant) : "NUMBER") +
                              "</pid> if a product is meant; a note belongs into a comment.",
                      other);
    }

    // A product that nobody wrote down.
    Ids otherProduct() const {
        const ListedVendor* const listed = findings_.form().find(vendor_);
        return {vendor_ & kLastId, idOutside(listed->products).value_or(1)};
    }

    void checkZeros(const std::string& text, const std::string& what, int line) {
        if (text.size() < 2 || text[0] != '0') return;
        const int32_t decimal = *number(text.c_str(), 10);
        const std::optional<int32_t> hexadecimal = number(text.c_str(), 16);
        std::string advice = "Write " + std::to_string(decimal) + " if that is meant.";
        if (hexadecimal && *hexadecimal <= kLastId && *hexadecimal != decimal) {
            advice += " If it was copied from lsusb, which prints hexadecimal, write " +
                      std::to_string(*hexadecimal) + ".";
        }
        findings_.add("leading-zero", line,
                      "The " + what + " id " + text + " is read as the decimal number " +
                              std::to_string(decimal) + ".",
                      advice, device_);
    }

    // `taken` is the one attribute that is read, the first of its name; nullptr for none.
    void overAttributes(const XMLElement& element, const char* taken) {
        for (const XMLAttribute* each = element.FirstAttribute(); each != nullptr;
             each = each->Next()) {
            const bool read = taken != nullptr && strcmp(each->Name(), taken) == 0;
            if (read) {
                taken = nullptr;
                continue;
            }
            findings_.add("ignored-attribute", each->GetLineNum(),
                          "The attribute \"" + std::string(each->Name()) + "\" of <" +
                                  element.Value() + "> is not read.",
                          "Remove it. A note belongs into a comment.", device_);
        }
    }

    // The text that is read of an element: it comes first, but for comments.
    static const XMLNode* textOf(const XMLElement& element) {
        const XMLNode* node = element.FirstChild();
        while (node != nullptr && node->ToComment() != nullptr) node = node->NextSibling();
        return node;
    }

    // Everything of a parent but `taken`.
    void passBy(const XMLNode& parent, const XMLNode* taken) {
        for (const XMLNode* node = parent.FirstChild(); node != nullptr;
             node = node->NextSibling()) {
            if (node == taken) continue;
            if (const XMLElement* element = node->ToElement()) addIgnoredElement(*element);
            passByText(*node);
        }
    }

    void passByTexts(const XMLNode& parent) {
        for (const XMLNode* node = parent.FirstChild(); node != nullptr;
             node = node->NextSibling()) {
            passByText(*node);
        }
    }

    void passByText(const XMLNode& node) {
        const bool text = node.ToText() != nullptr && !isBlank(node.Value());
        if (!text && node.ToUnknown() == nullptr) return;
        findings_.add("stray-text", node.GetLineNum(),
                      "The text " + quoted(node.Value()) + " is not read.",
                      "Remove it. A note belongs into a comment.", device_);
    }

    void addIgnoredElement(const XMLElement& element) {
        findings_.add("ignored-element", element.GetLineNum(),
                      "<" + std::string(element.Value()) + "> is not read here.",
                      "Rules stand directly below the one <usbconfig>. Remove it; a note belongs "
                      "into a comment.",
                      device_);
    }

    Findings& findings_;
    Claim device_;  // whom the rule at hand is about
    int32_t vendor_ = 0;
};

}  // namespace

void lintDocument(const std::string& text, Findings* findings) {
    tinyxml2::XMLDocument document(/*processEntities=*/true, tinyxml2::PRESERVE_WHITESPACE);
    document.Parse(text.data(), text.size());
    Walk(findings).over(document);
}

}  // namespace android::vus::workbench
