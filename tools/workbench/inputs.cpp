// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/inputs.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <utility>
#include <variant>

#include <android-base/file.h>

#include "tools/common/text.h"
#include "tools/workbench/exit_status.h"

namespace android::vus::workbench {

std::optional<std::string> readFile(const std::string& path, std::ostream& err) {
    std::string text;
    const bool read = path == "-" ? base::ReadFdToString(STDIN_FILENO, &text)
                                  : base::ReadFileToString(path, &text, /*follow_symlinks=*/true);
    if (read) return text;
    err << "vusctl: cannot read " << printable(path) << ": " << strerror(errno) << "\n";
    return std::nullopt;
}

std::optional<Policy> readPolicy(const std::string& path, std::ostream& err, int* status) {
    const std::optional<std::string> text = readFile(path, err);
    *status = kFailed;
    if (!text) return std::nullopt;
    auto result = parsePolicy(*text);
    if (auto* policy = std::get_if<Policy>(&result)) return std::move(*policy);
    const PolicyFailure& failure = std::get<PolicyFailure>(result);
    err << "vusctl: " << printable(path);
    if (failure.line != kNoLine) err << ":" << failure.line;
    err << ": " << printable(failure.status) << "\n";
    *status = kRefused;
    return std::nullopt;
}

Device exampleOf(const Claim& claim) {
    Device device;
    device.type = claim.interfaceClasses.empty() ? DeviceType::kInput : DeviceType::kUsb;
    device.claim = claim;
    return device;
}

std::string reasonOf(const Judgement& judgement) {
    std::string text = judgement.reason;
    while (!text.empty() && text.back() == ' ') text.pop_back();
    if (judgement.matched.empty()) return text;
    const bool one = judgement.matched.size() == 1;
    text += one ? " (line " : " (lines ";
    for (const Rule& rule : judgement.matched) {
        if (&rule != &judgement.matched.front()) text += ", ";
        text += std::to_string(rule.line);
    }
    return text + ")";
}

}  // namespace android::vus::workbench
