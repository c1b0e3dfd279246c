// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/analysis_commands.h"

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "tools/vusctl/report_options.h"
#include "tools/workbench/check.h"
#include "tools/workbench/device.h"
#include "tools/workbench/diff.h"
#include "tools/workbench/exit_status.h"
#include "tools/workbench/surface_command.h"

namespace android::vus::ctl {

namespace {

static_assert(workbench::kClean == kDone && workbench::kRefused == kRefused &&
              workbench::kUsage == kUsage && workbench::kFailed == kFailed);

// The format that was asked for; nothing if there is none of that name.
std::optional<workbench::Format> format_of(const Call& call) {
    using workbench::Format;
    static const std::map<std::string, Format> kFormats = {{"text", Format::kText},
                                                           {"json", Format::kJson},
                                                           {"sarif", Format::kSarif}};
    const std::string name = call.value("--format").value_or(call.has("--json") ? "json" : "text");
    const auto format = kFormats.find(name);
    if (format == kFormats.end()) return std::nullopt;
    return format->second;
}

}  // namespace

int check_policy_file(Context& context, const Call& call) {
    workbench::CheckOptions options;
    options.path = call.plain[0];
    options.strict = call.has("--strict");
    const auto format = format_of(call);
    if (!format) return context.usage_error("--format is text, json or sarif");
    options.format = *format;
    for (const std::string& id : call.values("--allow")) {
        if (workbench::findLintRule(id) == nullptr) {
            return context.usage_error("--allow: no finding is called " + id);
        }
        options.allowed.insert(id);
    }
    const std::unique_ptr<workbench::VendorNames> names = workbench::systemVendorNames();
    return workbench::runCheck(options, names.get(), context.out, context.err);
}

int diff_policies(Context& context, const Call& call) {
    const auto format = report_format(context, call);
    if (!format) return kUsage;
    const workbench::DiffOptions options = {call.plain[0], call.plain[1], call.value("--devices"),
                                            call.has("--no-new-access"), *format};
    return workbench::runDiff(options, context.out, context.err);
}

int show_surface(Context& context, const Call& call) {
    workbench::SurfaceOptions options = {call.plain[0], call.value("--modules-alias"), std::nullopt,
                                         call.has("--json")};
    if (const auto limit = call.value("--fail-above")) {
        options.failAbove = workbench::parseNumber(*limit);
        if (!options.failAbove || *options.failAbove < 0 || *options.failAbove > 100) {
            return context.usage_error("--fail-above takes a number from 0 to 100");
        }
    }
    return workbench::runSurface(options, context.out, context.err);
}

}  // namespace android::vus::ctl
