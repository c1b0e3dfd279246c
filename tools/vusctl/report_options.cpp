// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/report_options.h"

#include <map>
#include <string>

namespace android::vus::ctl {

std::vector<Option> report_options() {
    return {{"--format", "FORMAT", "text, json, or html: a page for a browser"},
            {"--json", nullptr, "for programs"}};
}

std::optional<workbench::ReportFormat> report_format(Context& context, const Call& call) {
    using workbench::ReportFormat;
    static const std::map<std::string, ReportFormat> kFormats = {{"text", ReportFormat::kText},
                                                                 {"json", ReportFormat::kJson},
                                                                 {"html", ReportFormat::kHtml}};
    const std::string name = call.value("--format").value_or(call.has("--json") ? "json" : "text");
    const auto format = kFormats.find(name);
    if (format != kFormats.end()) return format->second;
    context.usage_error("--format is text, json or html");
    return std::nullopt;
}

}  // namespace android::vus::ctl
