// SPDX-License-Identifier: Apache-2.0

#include <map>
#include <string>

#include "tools/vusctl/sources.h"
#include "tools/vusctl/workbench_commands.h"
#include "tools/workbench/explain.h"
#include "tools/workbench/json.h"

namespace android::vus::ctl {

namespace {

// Writes explanations as they come: a list may be of any length.
class ExplanationPrinter {
  public:
    ExplanationPrinter(const Policy& policy, bool json, std::ostream& out)
          : explainer_(policy), json_(json), out_(out) {}

    void print(const workbench::Device& device) {
        const workbench::Explanation explanation = explainer_.explain(device);
        if (json_) {
            out_ << workbench::toJsonLine(workbench::toJson(explanation)) << "\n";
            return;
        }
        if (count_++ > 0) out_ << "\n";
        out_ << workbench::toText(explanation);
        ++verdicts_[explanation.verdict()];
    }

    // "3 devices: 1 allowed, 1 refused, 1 left to the input subsystem"
    void printSum() {
        if (json_ || count_ == 1) return;
        out_ << (count_ == 0 ? "" : "\n") << count_ << " devices: " << verdicts_["allowed"]
             << " allowed, " << verdicts_["refused"] << " refused, " << verdicts_["input"]
             << " left to the input subsystem\n";
    }

  private:
    const workbench::Explainer explainer_;
    const bool json_;
    std::ostream& out_;
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
    int status = kDone;
    const auto policy = load_policy(context, call.plain[0], &status);
    if (!policy) return status;
    ExplanationPrinter printer(*policy, call.has("--json"), context.out);
    status = read_devices(context, call,
                          [&printer](const workbench::Device& device) { printer.print(device); });
    if (status == kDone) printer.printSum();
    return status;
}

}  // namespace android::vus::ctl
