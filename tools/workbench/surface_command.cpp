// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/surface_command.h"

#include <sys/utsname.h>

#include <sstream>

#include <android-base/logging.h>

#include "tools/common/text.h"
#include "tools/workbench/exit_status.h"
#include "tools/workbench/inputs.h"
#include "tools/workbench/json.h"
#include "tools/workbench/paragraph.h"
#include "tools/workbench/surface.h"

namespace android::vus::workbench {

namespace {

std::string ofRunningKernel() {
    utsname kernel{};
    uname(&kernel);
    return std::string("/lib/modules/") + kernel.release + "/modules.alias";
}

// One report on one surface.
class Report {
  public:
    Report(const Policy& policy, const Surface& surface, std::ostream& out)
          : rules_(policy), surface_(surface), out_(out) {}

    void writeText(size_t notUnderstood) const {
        for (const ReachableDriver& each : surface_.reachable) {
            const Judgement judgement = confirmed(each);
            out_ << printable(each.driver) << ": " << each.reachable << " of " << each.aliases
                 << (each.aliases == 1 ? " alias\n" : " aliases\n");
            writeParagraph(out_, "    ", describe(exampleOf(each.witness)));
            writeParagraph(out_, "    ", reasonOf(judgement));
        }
        writeParagraph(out_, "score " + std::to_string(surface_.score()) + ": ",
                       std::to_string(surface_.reachable.size()) + " of " +
                               std::to_string(surface_.drivers) +
                               " drivers can be bound by a device that the policy admits");
        if (surface_.unjudged > 0) {
            writeParagraph(out_, "",
                           std::to_string(surface_.unjudged) + " of the " +
                                   std::to_string(surface_.drivers) +
                                   " drivers can be bound, whatever the policy says, by a device "
                                   "with HID interfaces only: it is left to the input subsystem "
                                   "and never switched off");
        }
        if (notUnderstood > 0) {
            out_ << "(" << notUnderstood << " aliases in another form were passed over)\n";
        }
    }

    void writeJson(size_t notUnderstood) const {
        Json::Value report(Json::objectValue);
        report["score"] = surface_.score();
        report["drivers"] = static_cast<Json::UInt64>(surface_.drivers);
        report["aliases"] = static_cast<Json::UInt64>(surface_.aliases);
        report["aliasesPassedOver"] = static_cast<Json::UInt64>(notUnderstood);
        report["unjudged"] = static_cast<Json::UInt64>(surface_.unjudged);
        report["reachable"] = Json::Value(Json::arrayValue);
        for (const ReachableDriver& each : surface_.reachable) {
            Json::Value value(Json::objectValue);
            value["driver"] = each.driver;
            value["aliases"] = static_cast<Json::UInt64>(each.aliases);
            value["reachable"] = static_cast<Json::UInt64>(each.reachable);
            value["device"] = toJson(exampleOf(each.witness));
            value["reason"] = confirmed(each).reason;
            report["reachable"].append(std::move(value));
        }
        out_ << toJsonText(report);
    }

  private:
    // Nothing is shown that the judge does not confirm.
    Judgement confirmed(const ReachableDriver& driver) const {
        Judgement judgement = judge(driver.witness, rules_);
        CHECK(judgement.allowed) << driver.driver << ": " << judgement.reason;
        CHECK(screeningOf(exampleOf(driver.witness)) == Screening::kJudged) << driver.driver;
        return judgement;
    }

    const PolicyRules rules_;
    const Surface& surface_;
    std::ostream& out_;
};

}  // namespace

int runSurface(const SurfaceOptions& options, std::ostream& out, std::ostream& err) {
    int status = kClean;
    const std::optional<Policy> policy = readPolicy(options.policy, err, &status);
    if (!policy) return status;
    const auto text = readFile(options.aliases.value_or(ofRunningKernel()), err);
    if (!text) return kFailed;
    std::istringstream in(*text);
    const Aliases aliases = readAliases(in);
    if (aliases.usb.empty()) {
        err << "vusctl: the file has no alias of a USB driver\n";
        return kFailed;
    }
    const Surface surface = surfaceOf(ClosedForm(*policy), aliases);
    const Report report(*policy, surface, out);
    options.json ? report.writeJson(aliases.notUnderstood)
                 : report.writeText(aliases.notUnderstood);
    if (!options.failAbove || surface.score() <= *options.failAbove) return kClean;
    err << "vusctl: score " << surface.score() << " is above " << *options.failAbove << "\n";
    return kRefused;
}

}  // namespace android::vus::workbench
