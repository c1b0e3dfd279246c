// SPDX-License-Identifier: Apache-2.0

#include <map>
#include <optional>
#include <string>

#include "tools/vusctl/report_options.h"
#include "tools/vusctl/sources.h"
#include "tools/vusctl/workbench_commands.h"
#include "tools/workbench/explain.h"
#include "tools/workbench/json.h"
#include "tools/workbench/report.h"

namespace android::vus::ctl {

namespace {

using workbench::ReportFormat;

// Writes explanations as they come: a list may be of any length.
class ExplanationPrinter {
  public:
    ExplanationPrinter(const Policy& policy, std::string path, ReportFormat format,
                       std::ostream& out)
          : explainer_(policy), path_(std::move(path)), format_(format), out_(out) {}

    void print(const workbench::Device& device) {
        const workbench::Explanation explanation = explainer_.explain(device);
        switch (format_) {
            case ReportFormat::kText:
                out_ << (count_ > 0 ? "\n" : "") << workbench::toText(explanation);
                break;
            case ReportFormat::kJson:
                out_ << workbench::toJsonLine(workbench::toJson(explanation)) << "\n";
                break;
            case ReportFormat::kHtml:
                page().add(explanation);
                break;
        }
        ++count_;
        ++verdicts_[explanation.verdict()];
    }

    // `complete`: every device was read. Where none could be, there is no report.
    void finish(bool complete) {
        if (format_ == ReportFormat::kHtml && (complete || count_ > 0)) {
            page().end(sum(), complete);
        }
        if (format_ == ReportFormat::kText && complete && count_ != 1) {
            out_ << (count_ == 0 ? "" : "\n") << sum() << "\n";
        }
    }

  private:
    // "3 devices: 1 allowed, 1 refused, 1 left to the input subsystem"
    std::string sum() {
        return std::to_string(count_) + (count_ == 1 ? " device: " : " devices: ") +
               std::to_string(verdicts_["allowed"]) + " allowed, " +
               std::to_string(verdicts_["refused"]) + " refused, " +
               std::to_string(verdicts_["input"]) + " left to the input subsystem";
    }

    workbench::ExplanationReport& page() {
        if (!page_) page_.emplace(out_, path_);
        return *page_;
    }

    const workbench::Explainer explainer_;
    const std::string path_;
    const ReportFormat format_;
    std::ostream& out_;
    std::optional<workbench::ExplanationReport> page_;  // once there is something to be on it
    size_t count_ = 0;
    std::map<std::string, size_t> verdicts_;
};

}  // namespace

int explain_policy(Context& context, const Call& call) {
    if (!names_devices(call)) {
        return context.usage_error(
                "policy explain takes a device's description, --list, --tree "
                "or --live");
    }
    const auto format = report_format(context, call);
    if (!format) return kUsage;
    int status = kDone;
    const auto policy = load_policy(context, call.plain[0], &status);
    if (!policy) return status;
    ExplanationPrinter printer(*policy, call.plain[0], *format, context.out);
    status = read_devices(context, call,
                          [&printer](const workbench::Device& device) { printer.print(device); });
    printer.finish(status == kDone);
    return status;
}

}  // namespace android::vus::ctl
