// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/import.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include <android-base/stringprintf.h>
#include <android-base/strings.h>

#include "android/vus/policy.h"
#include "tools/common/text.h"
#include "tools/workbench/rule_language.h"
#include "tools/workbench/xml_comment.h"

namespace android::vus::workbench {

namespace {

using base::StringPrintf;
using Target = ForeignRule::Target;

bool overlaps(const RuleId& one, const RuleId& other) {
    const bool vendors = !one.vendor || !other.vendor || one.vendor == other.vendor;
    const bool products = !one.product || !other.product || one.product == other.product;
    return vendors && products;
}

// Whether a device may fit both; conditions besides the ids are not looked at.
bool overlaps(const ForeignRule& one, const ForeignRule& other) {
    if (one.ids.empty() || other.ids.empty()) return true;
    for (const RuleId& id : one.ids) {
        for (const RuleId& another : other.ids) {
            if (overlaps(id, another)) return true;
        }
    }
    return false;
}

// One import, rule by rule.
class Import {
  public:
    explicit Import(bool loose) : loose_(loose) {}

    ImportedPolicy of(const std::string& text) {
        const ForeignRules read = readForeignRules(text);
        for (const ForeignLine& line : read.errors) leaveOut(line.line, line.text, line.error);
        for (const ForeignRule& rule : read.rules) take(rule);
        dropOpenedVendors();
        std::stable_sort(imported_.left_out.begin(), imported_.left_out.end(),
                         [](const NotImported& one, const NotImported& other) {
                             return one.line < other.line;
                         });
        std::set<int> lines;
        for (const auto& [vendor, products] : products_) {
            for (const auto& [product, rule] : products) lines.insert(rule.line);
        }
        imported_.rules = lines.size();
        imported_.text = write();
        return std::move(imported_);
    }

  private:
    void leaveOut(int line, const std::string& text, const std::string& why) {
        imported_.left_out.push_back({line, printable(text), why});
    }

    void take(const ForeignRule& rule) {
        if (rule.target != Target::kAllow) {
            blocks_.push_back(rule);
            return;
        }
        const std::string why = whyNot(rule);
        if (!why.empty()) {
            leaveOut(rule.line, rule.text, why);
            return;
        }
        for (const RuleId& id : rule.ids) {
            const int32_t product = id.product.value_or(kEveryProduct);
            products_[*id.vendor].emplace(product, rule);
        }
    }

    std::string whyNot(const ForeignRule& rule) {
        const auto block =
                std::find_if(blocks_.begin(), blocks_.end(),
                             [&rule](const ForeignRule& each) { return overlaps(each, rule); });
        if (block != blocks_.end()) {
            return StringPrintf("line %d forbids a part of it, and no rule of ours says except",
                                block->line);
        }
        if (!rule.id_operator.empty() && rule.id_operator != "one-of") {
            return "a device has one id: only one-of can be said of ids";
        }
        const bool any = std::any_of(rule.ids.begin(), rule.ids.end(),
                                     [](const RuleId& id) { return !id.vendor; });
        if (rule.ids.empty() || any) return whyNotWithoutId(rule);
        return whyNotConditions(rule);
    }

    static std::string whyNotWithoutId(const ForeignRule& rule) {
        if (!rule.has_interfaces) {
            return rule.others.empty()
                           ? "it allows everything: that is mode default, or a blacklist"
                           : "no rule of ours looks at: " + base::Join(rule.others, ", ");
        }
        const bool hid = std::any_of(rule.interfaces.begin(), rule.interfaces.end(),
                                     [](const InterfaceType& type) { return type.code == 3; });
        if (hid) {
            return "HID devices are judged as input devices: list their sources, such as "
                   "AINPUT_SOURCE_KEYBOARD";
        }
        return "a class of ours lets restricted interfaces ride along, and any number of them: it "
               "would admit more";
    }

    std::string whyNotConditions(const ForeignRule& rule) {
        std::vector<std::string> asked = rule.others;
        if (rule.has_interfaces) asked.push_back("with-interface");
        if (asked.empty()) return "";
        const std::string names = base::Join(asked, ", ");
        if (!loose_)
            return "no rule of ours looks at: " + names + " (--loose imports the id alone)";
        imported_.warnings.push_back(
                StringPrintf("line %d: imported by its id alone, without: ", rule.line) + names);
        return "";
    }

    // A whole vendor opens each lower one that is listed with products: the products go.
    void dropOpenedVendors() {
        int32_t highest = -1;
        for (const auto& [vendor, products] : products_) {
            if (products.count(kEveryProduct) != 0) highest = vendor;
        }
        for (auto at = products_.begin(); at != products_.end();) {
            if (at->first >= highest || at->second.count(kEveryProduct) != 0) {
                ++at;
                continue;
            }
            for (const auto& [product, rule] : at->second) {
                leaveOut(rule.line, rule.text,
                         StringPrintf("vendor %04x, which is higher, is allowed whole, and would "
                                      "open all of %04x (surprise 4): list products instead",
                                      static_cast<uint32_t>(highest),
                                      static_cast<uint32_t>(at->first)));
            }
            at = products_.erase(at);
        }
    }

    std::string write() const {
        std::string text =
                "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<usbconfig mode=\"whitelist\">\n";
        for (const auto& [vendor, products] : products_) {
            const auto whole = products.find(kEveryProduct);
            if (whole != products.end()) {
                text += comment("    ", whole->second);
                text += StringPrintf("    <vid vendorid=\"%d\"/>\n", vendor);
                continue;
            }
            text += StringPrintf("    <vid vendorid=\"%d\">\n", vendor);
            for (const auto& [product, rule] : products) {
                text += comment("        ", rule);
                text += StringPrintf("        <pid>%d</pid>\n", product);
            }
            text += "    </vid>\n";
        }
        return text + "</usbconfig>\n";
    }

    static std::string comment(const char* indent, const ForeignRule& rule) {
        return indent + StringPrintf("<!-- line %d: ", rule.line) + xmlCommentText(rule.text) +
               " -->\n";
    }

    const bool loose_;
    ImportedPolicy imported_;
    std::vector<ForeignRule> blocks_;
    // By vendor, and then by product; the first rule that names it.
    std::map<int32_t, std::map<int32_t, ForeignRule>> products_;
};

}  // namespace

ImportedPolicy importRules(const std::string& text, bool loose) {
    return Import(loose).of(text);
}

Json::Value toJson(const ImportedPolicy& imported) {
    Json::Value value(Json::objectValue);
    value["policy"] = imported.text;
    value["imported"] = static_cast<Json::UInt64>(imported.rules);
    Json::Value& leftOut = value["leftOut"] = Json::Value(Json::arrayValue);
    for (const NotImported& rule : imported.left_out) {
        Json::Value each(Json::objectValue);
        each["line"] = rule.line;
        each["rule"] = valid_utf8(rule.text);
        each["why"] = valid_utf8(rule.why);
        leftOut.append(std::move(each));
    }
    Json::Value& warnings = value["warnings"] = Json::Value(Json::arrayValue);
    for (const std::string& warning : imported.warnings) warnings.append(valid_utf8(warning));
    return value;
}

}  // namespace android::vus::workbench
