// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/check.h"

#include <algorithm>
#include <map>
#include <variant>

#include "tools/common/text.h"
#include "tools/workbench/exit_status.h"
#include "tools/workbench/inputs.h"
#include "tools/workbench/json.h"
#include "tools/workbench/lint_internal.h"
#include "tools/workbench/paragraph.h"

namespace android::vus::workbench {

namespace {

constexpr char kSuccess[] = "SUCCESS";
// Of one kind; the other formats hold all.
constexpr size_t kMostOfAKind = 10;

std::string placeOf(const std::string& path, int line) {
    return printable(path) + (line == kNoLine ? "" : ":" + std::to_string(line)) + ": ";
}

void writeRejection(const std::string& path, const Rejection& rejection, std::ostream& out) {
    out << printable(rejection.status) << "\n"
        << placeOf(path, rejection.line) << "error: the daemon rejects this policy\n";
    if (rejection.hasOffender) {
        const std::string shown = withVisibleBlanks(rejection.offender);
        writeParagraph(out, "    found:        ", "\"" + shown + "\"");
        if (shown != rejection.offender) {
            out << "                  (\u00B7 blank, \u2192 tab, \u21B5 line end)\n";
        }
    }
    if (!rejection.hint.empty()) writeParagraph(out, "    did you mean: ", rejection.hint);
}

void writeFinding(const std::string& path, const Finding& finding, std::ostream& out) {
    out << placeOf(path, finding.line) << nameOf(finding.rule->level) << ": " << finding.rule->id
        << "\n";
    writeParagraph(out, "    ", finding.message);
    writeParagraph(out, "    device:  ", describe(exampleOf(finding.witness)));
    writeParagraph(out, "             ",
                   (finding.allowed ? "allowed: " : "refused: ") + finding.reason);
    writeParagraph(out, "    instead: ", finding.advice);
}

std::string tally(const std::vector<Finding>& findings) {
    std::string text = counted(findings.size(), "finding");
    const char* separator = ": ";
    for (const Level level : {Level::kError, Level::kWarning, Level::kNote}) {
        const auto count =
                std::count_if(findings.begin(), findings.end(),
                              [level](const auto& each) { return each.rule->level == level; });
        if (count == 0) continue;
        text += separator + counted(static_cast<size_t>(count), nameOf(level));
        separator = ", ";
    }
    return text;
}

void writeFindings(const std::string& path, const std::vector<Finding>& findings,
                   std::ostream& out) {
    std::map<std::string_view, size_t> ofKind;
    for (const Finding& finding : findings) {
        if (++ofKind[finding.rule->id] <= kMostOfAKind) writeFinding(path, finding, out);
    }
    for (const auto& [id, count] : ofKind) {
        if (count <= kMostOfAKind) continue;
        out << "and " << count - kMostOfAKind << " more: " << id << " (--format json has all)\n";
    }
    if (!findings.empty()) out << tally(findings) << "\n";
}

Json::Value toJson(const Finding& finding) {
    Json::Value value(Json::objectValue);
    value["rule"] = std::string(finding.rule->id);
    value["level"] = std::string(nameOf(finding.rule->level));
    value["line"] = finding.line;
    value["message"] = finding.message;
    value["instead"] = finding.advice;
    value["device"] = toJson(exampleOf(finding.witness));
    value["allowed"] = finding.allowed;
    value["reason"] = finding.reason;
    return value;
}

Json::Value toJson(const Rejection& rejection) {
    Json::Value value(Json::objectValue);
    if (rejection.line != kNoLine) value["line"] = rejection.line;
    if (rejection.hasOffender) value["found"] = rejection.offender;
    if (!rejection.hint.empty()) value["didYouMean"] = rejection.hint;
    return value;
}

std::string toJsonReport(const std::string& path, const Rejection* rejection,
                         const std::vector<Finding>& findings, bool vendorsLookedUp) {
    Json::Value report(Json::objectValue);
    report["file"] = path;
    report["accepted"] = rejection == nullptr;
    report["status"] = rejection == nullptr ? kSuccess : rejection->status;
    if (rejection != nullptr) {
        report["rejection"] = toJson(*rejection);
        return toJsonText(report);
    }
    report["vendorsLookedUp"] = vendorsLookedUp;
    report["findings"] = Json::Value(Json::arrayValue);
    for (const Finding& finding : findings) report["findings"].append(toJson(finding));
    return toJsonText(report);
}

// One check of one file.
class Check {
  public:
    Check(const CheckOptions& options, const VendorNames* names, std::ostream& out)
          : options_(options), names_(names), out_(out) {}

    int of(const std::string& text) {
        const auto result = parsePolicy(text);
        if (const auto* failure = std::get_if<PolicyFailure>(&result)) {
            return report(explain(*failure));
        }
        const Policy& policy = std::get<Policy>(result);
        std::vector<Finding> findings = lint(text, policy, names_);
        findings.erase(std::remove_if(findings.begin(), findings.end(),
                                      [this](const Finding& each) {
                                          return options_.allowed.count(
                                                         std::string(each.rule->id)) > 0;
                                      }),
                       findings.end());
        report(policy, findings);
        return options_.strict && !findings.empty() ? kFindings : kClean;
    }

  private:
    int report(const Rejection& rejection) {
        switch (options_.format) {
            case Format::kText:
                writeRejection(options_.path, rejection, out_);
                break;
            case Format::kJson:
                out_ << toJsonReport(options_.path, &rejection, {}, false);
                break;
            case Format::kSarif:
                out_ << toSarif(options_.path, &rejection, {});
        }
        return kRefused;
    }

    void report(const Policy& policy, const std::vector<Finding>& findings) {
        switch (options_.format) {
            case Format::kText:
                out_ << kSuccess << "\n";
                writeFindings(options_.path, findings, out_);
                if (names_ == nullptr && !policy.vendors.empty()) {
                    out_ << "(vendors not looked up: this system has no database of USB ids)\n";
                }
                break;
            case Format::kJson:
                out_ << toJsonReport(options_.path, nullptr, findings, names_ != nullptr);
                break;
            case Format::kSarif:
                out_ << toSarif(options_.path, nullptr, findings);
        }
    }

    const CheckOptions& options_;
    const VendorNames* const names_;
    std::ostream& out_;
};

}  // namespace

int runCheck(const CheckOptions& options, const VendorNames* names, std::ostream& out,
             std::ostream& err) {
    const std::optional<std::string> text = readFile(options.path, err);
    if (!text) return kFailed;
    return Check(options, names, out).of(*text);
}

}  // namespace android::vus::workbench
