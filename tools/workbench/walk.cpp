// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/walk.h"

#include <android-base/stringprintf.h>

#include "android/vus/class_names.h"

namespace android::vus::workbench {

namespace {

using base::StringPrintf;
using Kind = Step::Kind;

std::string idText(int32_t id) {
    return StringPrintf("%d (0x%04x)", id, static_cast<uint32_t>(id));
}

// Puts steps into words, one after the other.
class Narrator {
  public:
    Narrator(const Claim& claim, const Rules& rules) : claim_(claim), rules_(rules) {}

    void tell(const Step& step) {
        switch (step.kind) {
            case Kind::kInterface:
                subject_ = StringPrintf("interface %zu: ", interfaces_++);
                break;
            case Kind::kSource:
                subject_ = "source ";
                break;
            case Kind::kSourceBits:
                lines.push_back(
                        StringPrintf("source bits 0x%x", static_cast<uint32_t>(step.value)));
                break;
            case Kind::kRestrictedClass:
                about(step.value, "restricted, rides along");
                break;
            case Kind::kListedClass:
                about(step.value, "listed, " + lineOf(*rules_.classRule(step.value)));
                break;
            case Kind::kUnlistedInterface:
            case Kind::kUnlistedSource:
                about(step.value, "not listed: no class match");
                break;
            case Kind::kListedVendor:
                tellWholeVendor(step.value);
                break;
            case Kind::kListedProduct:
                lines.push_back("vendor " + idText(step.value) + ": not listed whole");
                lines.push_back("product " + idText(step.other) + " of it: listed, " +
                                lineOf(*rules_.productRule(step.value, step.other)));
                break;
            case Kind::kSingleSource:
            case Kind::kSeveralSources:
                break;
        }
    }

    void tellMiss(const Miss& miss) {
        if (miss.cause == Miss::Cause::kRestrictedOnly) {
            lines.push_back("nothing but restricted interfaces: no class match");
        }
        if (miss.cause == Miss::Cause::kNoSource) {
            lines.push_back("no interface and no source that has a name: no class match");
        }
        lines.push_back("vendor " + idText(miss.vendor) + ": not listed whole");
        lines.push_back("product " + idText(claim_.productId) + " of it: not listed");
    }

    std::vector<std::string> lines;

  private:
    void about(int32_t code, const std::string& what) {
        lines.push_back(subject_ + codeAndName(code) + ": " + what);
    }

    void tellWholeVendor(int32_t vendor) {
        const Rule rule = *rules_.wholeVendorRule(vendor);
        if (rule.id == vendor) {
            lines.push_back("vendor " + idText(vendor) + ": listed whole, " + lineOf(rule));
            return;
        }
        lines.push_back("vendor " + idText(vendor) + ": counts as listed whole,");
        lines.push_back("  because vendor " + idText(rule.id) +
                        ", which is higher, is: " + lineOf(rule) + " (surprise 4)");
    }

    const Claim& claim_;
    const Rules& rules_;
    std::string subject_;
    size_t interfaces_ = 0;
};

}  // namespace

std::string lineOf(const Rule& rule) {
    return rule.line == kNoLine ? "no line" : "line " + std::to_string(rule.line);
}

std::string codeAndName(int32_t code) {
    const std::string number = code < kFirstInputSource
                                       ? std::to_string(code)
                                       : StringPrintf("0x%x", static_cast<uint32_t>(code));
    const std::string_view name = className(code);
    return name == " " ? number : number + " " + std::string(name);
}

std::vector<std::string> walkOf(const Judgement& judgement, const Claim& claim,
                                const Rules& rules) {
    Narrator narrator(claim, rules);
    for (const Step& step : judgement.steps) narrator.tell(step);
    if (judgement.miss) narrator.tellMiss(*judgement.miss);
    return narrator.lines;
}

}  // namespace android::vus::workbench
